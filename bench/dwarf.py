#!/usr/bin/env python3
"""vnDump's look-ups beside gdb, eu-addr2line and a program on libdw.

    bench/dwarf.py [BIN] [UNITS]     BIN: the folder of our programs, by default build/release/bin

Makes an ARM program with DWARF 5 and one with DWARF 4 (about 0.6 MB of debug sections a unit) below
build/bench once; it takes minutes.
"""
import json
import os
import random
import subprocess
import sys

from compare import compare
from dwarf_input import program

root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ours = os.path.join(sys.argv[1] if len(sys.argv) > 1 else os.path.join(root, "build/release/bin"), "vnDump")
units = int(sys.argv[2]) if len(sys.argv) > 2 else 40
folder = os.path.join(root, "build/bench")
peer = os.path.join(folder, "libdw_peer")
os.makedirs(folder, exist_ok=True)
subprocess.run(["gcc", "-O2", os.path.join(root, "bench/libdw_peer.c"), "-o", peer, "-ldw"], check=True)


def function_addresses(path, count):
    symbols = subprocess.run(["nm", "-S", path], capture_output=True, text=True, check=True).stdout.split("\n")
    rows = [line.split() for line in symbols]
    functions = [(int(r[0], 16) & ~1, int(r[1], 16)) for r in rows if len(r) == 4 and r[2] in "tTwW" and int(r[1], 16)]
    generator = random.Random(1)
    return [hex(start + generator.randrange(0, size, 2)) for start, size in generator.choices(functions, k=count)]


for version in (5, 4):
    path = program(folder, version, units)
    size = sum(int(line.split()[1]) for line in subprocess.run(["size", "-A", path], capture_output=True, text=True).stdout.split("\n") if line.startswith(".debug"))
    print(f"\nDWARF {version}: {size / 1e6:.1f} MB of debug sections")
    one, many = function_addresses(path, 1), function_addresses(path, 10000)
    answer = subprocess.run([ours, "line", "--json", path, *one], capture_output=True, check=True).stdout
    row = json.loads(answer)[0]
    place = f"{row['file']}:{row['line']}"
    compare("the first line", {
        "vnDump": [ours, "line", path, *one],
        "eu-addr2line": ["eu-addr2line", "-e", path, *one],
        "eu-addr2line -f": ["eu-addr2line", "-f", "-e", path, *one],
        "gdb": ["gdb-multiarch", "-nx", "-batch", "-ex", f"info line *{one[0]}", path]}, rounds=5)
    compare("10,000 look-ups", {"vnDump": [ours, "line", path, *many], "libdw": [peer, "lookup", path, *many]}, rounds=3)
    compare("all line tables (ours: and an index by file and line)", {
        "vnDump": [ours, "address", path, place], "libdw": [peer, "lines", path]}, rounds=5)
    compare("addresses of a line", {
        "vnDump": [ours, "address", path, place],
        "gdb": ["gdb-multiarch", "-nx", "-batch", "-ex", f"info line {place}", path]}, rounds=3)
    compare("a type by its name", {
        "vnDump": [ours, "type", path, "unit7::Device33"],
        "gdb": ["gdb-multiarch", "-nx", "-batch", "-ex", "ptype /o unit7::Device33", path]}, rounds=3)
    compare("disassembly of everything", {
        "vnDump": [ours, "disassemble", path], "objdump": ["arm-none-eabi-objdump", "-d", path]}, rounds=3)
    compare("disassembly with source lines", {
        "vnDump": [ours, "disassemble", "--source", path], "objdump": ["arm-none-eabi-objdump", "-d", "-S", path]}, rounds=1)
