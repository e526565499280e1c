#!/usr/bin/env python3
"""ltollvm beside a bare program that makes the same LTO library calls, beside ld.lld linking only the ELF
inputs, and its own time against the number of symbols.  bench/ltollvm.py [FOLDER]

Input, made with clang and the GNU tools: 200 bitcode modules, 50 objects and an archive of 500 members. Own
time is measured with the tests' library that does nothing."""
import os
import pathlib
import subprocess
import sys
import tempfile

from compare import compare, cpu_seconds

root = pathlib.Path(__file__).resolve().parent.parent
build = root / "build" / "release"
folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else tempfile.mkdtemp())
folder.mkdir(parents=True, exist_ok=True)
library = next(line for line in subprocess.check_output(["dpkg", "-L", "llvm-14-linker-tools"], text=True).split()
               if "/libLTO.so" in line)
clang = ["clang-14", "--target=thumbv7m-none-eabi", "-mcpu=cortex-m3", "-O1", "-ffreestanding", "-c"]


def source(kind, number, count):
    """A file of `count` functions; bitcode calls other bitcode, the objects and the archive."""
    lines = []
    for f in range(count):
        calls = [f"{kind}_{(number + 1) % 50}_{f}"]
        if kind == "ir":
            calls += [f"obj_{number % 50}_{f}", f"lib_{number * 2 % 500}_{f}"]
        lines += [f"int {name}(int);" for name in calls]
        body = " ".join(f"x ^= {name}(x + {i}) * table[(x >> {i}) & 7];" for i, name in enumerate(calls))
        lines.append(f"int {kind}_{number}_{f}(int x) {{ static const int table[8] = {{1, 3, 5, 7, 11, 13, 17, {f}}};"
                     f" for (int i = 0; i < x; i++) {{ switch (x & 3) {{ case 0: {body} break;"
                     f" case 1: x += table[i & 7] << (i & 3); break; default: x = x * {number + 3} + i; }} }} return x; }}")
    return "\n".join(lines)


def make(kind, number, count, options=()):
    out = folder / f"{kind}{number}.{'bc' if kind == 'ir' else 'o'}"
    if not out.exists():
        subprocess.run([*clang, *options, "-x", "c", "-", "-o", out], input=source(kind, number, count), text=True,
                       check=True)
    return out


bitcode = [make("ir", i, 4, ["-flto"]) for i in range(200)]
objects = [make("obj", i, 20) for i in range(50)]
members = [make("lib", i, 20) for i in range(500)]
start = folder / "start.o"
subprocess.run([*clang, "-x", "c", "-", "-o", start], text=True, check=True,
               input="".join(f"int ir_{i}_{f}(int);" for i in range(200) for f in range(4)) + "void _start(void) { "
               + "".join(f"ir_{i}_{f}(1);" for i in range(200) for f in range(4)) + "for (;;) ; }")
archive = folder / "lib.a"
if not archive.exists():
    subprocess.run(["arm-none-eabi-ar", "rc", archive, *members], check=True)
inputs = folder / "inputs.txt"
inputs.write_text("".join(f'"{path}"\n' for path in [start, *bitcode, *objects, archive]))

# The names that ltollvm preserves, as the library that does nothing notes them.
log = folder / "log"
log.unlink(missing_ok=True)
fake = build / "tests" / "libfake_lto_old.so"
driver = [build / "bin" / "ltollvm", "-mcpu=cortex-m3", "-O1"]
outputs = [folder / "ld.txt", folder / "lto.o"]
plain = folder / "elf-inputs.txt"
plain.write_text("".join(f'"{path}"\n' for path in [start, *objects, archive]))
subprocess.run([*driver, library, inputs, *outputs], check=True, env={**os.environ, "LTOLLVM_TRACE": "1"},
               stderr=open(folder / "trace", "w"))
subprocess.run(["g++", "-O2", root / "bench" / "bare_lto.cpp", "-o", folder / "bare_lto", "-ldl"], check=True)
names = {line.split("'")[1] for line in open(folder / "trace")}
(folder / "names").write_text("\n".join(sorted(names)) + "\n")

compare("200 bitcode modules, 50 objects, archive of 500 members",
        {"ltollvm": [*driver, library, inputs, *outputs],
         "bare": [folder / "bare_lto", library, folder / "bare.o", folder / "names", *bitcode]}, rounds=12)

os.environ["FAKE_LTO_LOG"] = "/dev/null"
subprocess.run(["arm-none-eabi-gcc", "-nostdlib", "-c", "-x", "c", "/dev/null", "-o", folder / "empty.o"], check=True)
compare("own share: the ELF inputs alone, a library that does nothing",
        {"ltollvm": [*driver, fake, plain, *outputs],
         "ld.lld": ["ld.lld", "--unresolved-symbols=ignore-all", "-e", "_start", "--whole-archive", archive,
                    "--no-whole-archive", start, *objects, "-o", folder / "linked.elf"]}, rounds=20)


def symbols_input(count):
    """One object of `count` symbols, half of them undefined, and the time of the driver over it."""
    path = folder / f"symbols{count}.o"
    if not path.exists():
        text = "".join(f".global s{i}\ns{i}: .word u{i}\n" for i in range(count // 2))
        subprocess.run(["arm-none-eabi-as", "-", "-o", path], input=text, text=True, check=True)
    listing = folder / f"symbols{count}.txt"
    listing.write_text(f"{path}\n")
    command = [*driver, fake, listing, *outputs]
    return min(cpu_seconds(command)[0] for _ in range(10))


empty = folder / "none.txt"
empty.write_text("")
base = min(cpu_seconds([*driver, fake, empty, *outputs])[0] for _ in range(10))
small, large = symbols_input(100_000) - base, symbols_input(1_000_000) - base
print(f"own time: {small * 1000:.1f} ms for 100,000 symbols, {large * 1000:.1f} ms for ten times as many: "
      f"{large / small:.1f} times (start-up of {base * 1000:.1f} ms taken off)")
