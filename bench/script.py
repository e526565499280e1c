#!/usr/bin/env python3
"""vnScript beside Duktape on small JavaScript programs, compile speed and start-up.

    bench/script.py [FOLDER_WITH_PROGRAMS] [ROUNDS]     default: build/release/bin, 5
"""
import math
import pathlib
import subprocess
import sys
import tempfile

from compare import compare, cpu_seconds

here = pathlib.Path(__file__).resolve().parent
programs = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else here.parent / "build/release/bin")
rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 5
ours = programs / "vnScript"

ratios = {}
for script in sorted((here / "script").glob("*.js")):
    times = compare(script.stem, {"vnScript": [ours, script], "duk": ["duk", script]}, rounds)
    ratios[script.stem] = times["vnScript"] / times["duk"]
for name, ratio in ratios.items():
    print(f"{name:12} {ratio:6.3f}")
print(f"geometric mean {math.exp(sum(map(math.log, ratios.values())) / len(ratios)):.3f}, worst {max(ratios.values()):.3f}")

with tempfile.TemporaryDirectory() as folder:
    source = pathlib.Path(folder) / "long.js"
    with source.open("w") as file:
        for i in range(20000):
            file.write(f"function f{i}(a, b) {{\n  var x = a * {i} + b, y = [x, 'text {i}'];\n"
                       f"  if (x > y.length) return f{i // 2}(x, {{ key: y }});\n  return x;\n}}\n")
    # Running it only makes the functions.
    compare("compile 100,000 lines", {"vnScript": [ours, source], "duk": ["duk", source]}, rounds)
compare("start-up", {"vnScript": [ours, "-e", "1"], "duk": ["duk", "-e", "1"]}, 20, wall=True)
