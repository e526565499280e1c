#!/usr/bin/env python3
"""vnBuild beside ninja and make on the same sources: a no-op build, a build after one source was touched, a full
build with a compiler that does next to nothing.

    bench/build_bench.py [--build build/release] [--sources 2000] [--jobs 2] [--rounds 10] [--full-rounds 3]

Each source includes 10 of 500 headers, objects have dependency files, one link is at the end. vnBuild runs twice:
with the compiler as the solution's external command, and as the driver of a tool chain of its own ("vnBuild, cc").
"""
import argparse
import os
import pathlib
import random
import resource
import shutil
import subprocess
import sys
import tempfile
import time

compiler = r"""
#include <stdio.h>
#include <string.h>
/* Copies what the source includes into a make rule. tcc SOURCE -o OBJECT -depend FILE, or -o TARGET alone. */
int main(int count, char **words)
{
    const char *source = 0, *object = 0, *depend = 0;
    for (int i = 1; i < count; ++i) {
        if (!strcmp(words[i], "-o") && i + 1 < count) object = words[++i];
        else if (!strcmp(words[i], "-depend") && i + 1 < count) depend = words[++i];
        else if (!strcmp(words[i], "-inputfiles") && i + 1 < count) ++i;
        else if (words[i][0] != '-' && strstr(words[i], ".c")) source = words[i];
    }
    FILE *out = fopen(object, "w");
    if (!out) return 1;
    fputs("object\n", out);
    fclose(out);
    if (!source || !depend) return 0;
    FILE *in = fopen(source, "r"), *rule = fopen(depend, "w");
    if (!in || !rule) return 1;
    fprintf(rule, "%s: %s", object, source);
    char line[256], name[256];
    while (fgets(line, sizeof line, in))
        if (sscanf(line, "#include \"%255[^\"]\"", name) == 1) fprintf(rule, " \\\n %s", name);
    fputc('\n', rule);
    fclose(rule);
    fclose(in);
    return 0;
}
"""


def generate(folder, sources):
    chance = random.Random(1)
    (folder / "include").mkdir()
    for number in range(500):
        (folder / f"include/h{number}.h").write_text(f"int h{number};\n")
    for number in range(sources):
        path = folder / f"src/d{number // 100}/f{number}.c"
        path.parent.mkdir(parents=True, exist_ok=True)
        headers = chance.sample(range(500), 10)
        path.write_text("".join(f'#include "include/h{h}.h"\n' for h in headers) + f"int f{number};\n")
    (folder / "tool").mkdir()
    (folder / "tool/tcc.c").write_text(compiler)
    subprocess.run(["gcc", "-O1", "-static", "-o", folder / "tool/tcc", folder / "tool/tcc.c"], check=True)
    return [f"src/d{number // 100}/f{number}.c" for number in range(sources)]


def write_solution(folder, name, sources, attributes):
    groups = {}
    for source in sources:
        groups.setdefault(source.split("/")[1], []).append(source)
    files = "".join(f'<folder Name="{group}">' + "".join(f'<file file_name="{s}"/>' for s in members) + "</folder>\n"
                    for group, members in groups.items())
    (folder / f"{name}.vnProject").write_text(
        f'<!DOCTYPE Veldane_Project_File>\n<solution Name="{name}" version="2" target="8"><project Name="{name}">'
        f'<configuration Name="Common" build_intermediate_directory="obj-{name}" build_output_directory="out-{name}" '
        f'c_user_include_directories="include;.." c_preprocessor_definitions="NDEBUG;VERSION=3" linker_map_file="No" '
        f'linker_section_placement_file="" {attributes}/>{files}</project>'
        '<configuration Name="Debug" inherited_configurations="Common"/></solution>')


def write_peers(folder, sources):
    ninja = ["rule cc", "  command = tcc $in -o $out -depend $out.d", "  depfile = $out.d", "  deps = gcc",
             "rule link", "  command = tcc -o $out"]
    ninja += [f"build obj-ninja/{s}.o: cc {s}" for s in sources]
    ninja += ["build app-ninja: link " + " ".join(f"obj-ninja/{s}.o" for s in sources)]
    (folder / "build.ninja").write_text("\n".join(ninja) + "\n")
    make = ["all: app-make"]
    make += [f"obj-make/{s}.o: {s}\n\t@tcc {s} -o $@ -depend $@.d\n-include obj-make/{s}.o.d" for s in sources]
    make += ["app-make: " + " ".join(f"obj-make/{s}.o" for s in sources) + "\n\t@tcc -o $@"]
    (folder / "Makefile").write_text("\n".join(make) + "\n")
    for source in sources:
        (folder / "obj-make" / source).parent.mkdir(parents=True, exist_ok=True)


def measure(command, folder, environment):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    result = subprocess.run(command, cwd=folder, env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if result.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} ended with {result.returncode}\n{result.stderr.decode()}")
    return wall, after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime


def main():
    arguments = argparse.ArgumentParser()
    root = pathlib.Path(__file__).resolve().parent.parent
    arguments.add_argument("--build", default=root / "build/release", type=pathlib.Path)
    arguments.add_argument("--sources", default=2000, type=int)
    arguments.add_argument("--jobs", default=os.cpu_count(), type=int)
    arguments.add_argument("--rounds", default=10, type=int)
    arguments.add_argument("--full-rounds", default=3, type=int)
    arguments.add_argument("--keep", type=pathlib.Path, help="generate here and leave it there")
    options = arguments.parse_args()
    temporary = tempfile.TemporaryDirectory()
    folder = options.keep or pathlib.Path(temporary.name)
    folder.mkdir(parents=True, exist_ok=True)
    sources = generate(folder, options.sources)
    write_peers(folder, sources)
    write_solution(folder, "external", sources,
                   'build_object_file_name="$(IntDir)/$(RelInputPath).o" external_c_compile_command="tcc $(RelInputPath) '
                   '-o $(RelTargetPath) -depend $(RelDependencyPath)" external_link_command="tcc -o $(RelTargetPath)"')
    write_solution(folder, "driver", sources, "")
    # An installation whose cc is the stand-in.
    installation = folder / "installation/bin"
    installation.mkdir(parents=True)
    shutil.copy(options.build / "bin/vnBuild", installation / "vnBuild")
    shutil.copy(folder / "tool/tcc", installation / "cc")
    environment = dict(os.environ, PATH=f"{folder / 'tool'}:{os.environ['PATH']}")
    jobs = f"-j{options.jobs}"
    commands = {
        "vnBuild": [options.build / "bin/vnBuild", jobs, "external.vnProject"],
        "vnBuild, cc": [installation / "vnBuild", jobs, "driver.vnProject"],
        "ninja": ["ninja", jobs],
        "make": ["make", "-s", jobs],
    }
    outputs = {"vnBuild": ["obj-external", "out-external"], "vnBuild, cc": ["obj-driver", "out-driver"],
               "ninja": ["obj-ninja", "app-ninja", ".ninja_deps", ".ninja_log"], "make": ["app-make"]}

    def clean(name):
        for output in outputs[name]:
            path = folder / output
            shutil.rmtree(path) if path.is_dir() else path.unlink(missing_ok=True)
        if name == "make":
            for path in folder.glob("obj-make/**/*.o*"):
                path.unlink()

    touched = folder / sources[len(sources) // 2]
    for path in folder.rglob("*.[ch]"):  # sources lie in the past
        os.utime(path, (time.time() - 100,) * 2)

    def report(title, rounds, prepare):
        best = {}
        for _ in range(rounds):
            for name, command in commands.items():
                prepare(name)
                result = measure(command, folder, environment)
                best[name] = tuple(map(min, zip(best.get(name, result), result)))
        print(f"{title}, best of {rounds}")
        for name, (wall, cpu) in best.items():
            ratios = "  ".join(f"{wall / best[peer][0]:5.2f} {cpu / best[peer][1]:5.2f} x {peer}"
                               for peer in ("ninja", "make") if peer != name)
            print(f"  {name:12} wall {wall * 1000:8.1f} ms  CPU {cpu * 1000:8.1f} ms   {ratios}")

    print(f"{options.sources} sources, 10 headers each, {jobs}; ratios are of wall and CPU time")
    report("full build", options.full_rounds, clean)
    report("no-op build", options.rounds, lambda name: None)

    def touch_source(name):
        time.sleep(1.01)  # whole seconds count
        os.utime(touched)

    report("one source touched", options.rounds, touch_source)


main()
