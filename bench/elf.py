#!/usr/bin/env python3
"""vnDump's symbol listing beside eu-nm, on an ELF32 with 280,000 symbols; loading and one look-up (bench build:
elf_lookup) beside gdb's start.  bench/elf.py [FOLDER]"""
import pathlib
import subprocess
import sys
import tempfile

from compare import compare

root = pathlib.Path(__file__).resolve().parent.parent
folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else tempfile.mkdtemp())
folder.mkdir(parents=True, exist_ok=True)
image = folder / "many.elf"
if not image.exists():
    # Functions of two instructions with names of the length that C++ gives them.
    text = ".syntax unified\n.thumb\n" + "".join(
        f".global _ZN6device5Motor{len(str(i)) + 4}step{i}Ei\n.type _ZN6device5Motor{len(str(i)) + 4}step{i}Ei, %function\n"
        f"_ZN6device5Motor{len(str(i)) + 4}step{i}Ei: nop\n bx lr\n" for i in range(280_000))
    subprocess.run(["arm-none-eabi-as", "-mcpu=cortex-m3", "-", "-o", folder / "many.o"], input=text, text=True, check=True)
    subprocess.run(["arm-none-eabi-ld", "-Ttext=0x8000", "-e", "0", folder / "many.o", "-o", image], check=True)

compare("listing 280,000 symbols", {"vnDump": [root / "build/release/bin/vnDump", "elf", image, "--symbols"],
                                    "eu-nm": ["eu-nm", image]})
lookup = root / "build/bench/bench/elf_lookup"
if lookup.exists():
    name = "_ZN6device5Motor10step123456Ei"
    compare("loading and the first look-up", {"by name": [lookup, image, name], "by address": [lookup, image, "0x80000"],
                                             "gdb": ["gdb-multiarch", "-nx", "-batch", image]}, rounds=5)
