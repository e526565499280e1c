"""Makes ARM programs with many megabytes of debug sections out of generated C++ sources.

    from dwarf_input import program
    path = program(folder, version=5)        # compiled once, found again in the folder after that

Each of the units has namespaces, classes with methods, enumerations, templates that many units instantiate, and
functions with blocks, locals and inlined calls.
"""
import os
import random
import subprocess
from concurrent.futures import ThreadPoolExecutor

COMMON = """
template <typename T> struct Box { T value; T get() const { return value; } void set(T v) { value = v; } };
template <typename T, int N> struct Ring {
    T items[N]; unsigned head, tail;
    bool push(const T &item) { unsigned next = (head + 1) % N; if (next == tail) return false; items[head] = item; head = next; return true; }
    bool pop(T &item) { if (tail == head) return false; item = items[tail]; tail = (tail + 1) % N; return true; }
};
inline int clamp(int v, int low, int high) { return v < low ? low : v > high ? high : v; }
"""


def source(unit, classes=120):
    rng = random.Random(unit)
    lines = [COMMON, f"namespace unit{unit} {{"]
    for c in range(classes):
        members = rng.randint(4, 12)
        lines.append(f"enum class State{c} {{ " + ", ".join(f"S{unit}_{c}_{i}" for i in range(rng.randint(3, 9))) + " };")
        lines.append(f"class Device{c} {{ public:")
        lines += [f"    {rng.choice(['int', 'unsigned short', 'long long', 'char', 'float'])} member{i};" for i in range(members)]
        lines.append(f"    Ring<{rng.choice(['int', 'short', 'char'])}, {rng.choice([8, 16, 32])}> queue;")
        lines.append(f"    Box<State{c}> state; Device{c} *next;")
        for m in range(4):
            lines.append(f"    int method{m}(int a, const Device{c} &other);")
        lines.append("};")
        for m in range(4):
            lines.append(f"int Device{c}::method{m}(int a, const Device{c} &other) {{")
            lines.append("    int total = a;")
            lines.append(f"    for (int i = 0; i < {rng.randint(3, 90)}; ++i) {{")
            lines.append("        int part = clamp(i * total, -100, 100);")
            lines.append(f"        if (part > {rng.randint(0, 50)}) {{ int extra = part + int(other.member{rng.randrange(members)}); total += extra; }}")
            lines.append("        else total -= part;")
            lines.append("    }")
            lines.append(f"    state.set(State{c}(total % 3)); queue.push(queue.items[0]);")
            lines.append(f"    return next ? next->method{(m + 1) % 4}(total, *this) : total; }}")
        lines.append(f"Device{c} device{c}; static int count{c} = {c}; int *pointer{c} = &count{c};")
    lines.append("}")
    return "\n".join(lines) + "\n"


def program(folder, version=5, units=40, compiler="arm-none-eabi-g++", flags=("-O1",)):
    path = os.path.join(folder, f"firmware{version}-{units}-{compiler}.elf")
    if os.path.exists(path):
        return path
    os.makedirs(folder, exist_ok=True)
    target = ["-mcpu=cortex-m4", "-mthumb"] if "arm-none" in compiler else ["--target=armv7em-none-eabi"]
    common = [compiler, *target, *flags, "-g", f"-gdwarf-{version}", "-fno-exceptions", "-fno-rtti", "-ffunction-sections"]

    def compile_unit(unit):
        name = os.path.join(folder, f"unit{unit}.cpp")
        with open(name, "w") as file:
            file.write(source(unit))
        subprocess.run([*common, "-c", name, "-o", name[:-4] + f"-{version}.o"], check=True)
        return name[:-4] + f"-{version}.o"

    with ThreadPoolExecutor(2) as pool:
        objects = list(pool.map(compile_unit, range(units)))
    subprocess.run(["arm-none-eabi-ld", "-Ttext=0x8000", "-e", "0x8000", "--unresolved-symbols=ignore-all", *objects,
                    "-o", path], check=True)
    for name in objects:
        os.remove(name)
    return path
