#!/usr/bin/env python3
"""vnLoad beside objcopy on a 16 MiB image of random bytes:  bench/loadfile.py [BUILD]

Reading is measured as conversion into a binary file, writing as conversion from one, so that both programs do
the whole job; "info" reads and computes CRCs. BUILD is the folder with bin/vnLoad, default build/release.
"""
import os
import random
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(__file__))
from compare import compare

build = sys.argv[1] if len(sys.argv) > 1 else "build/release"
load = os.path.join(os.path.abspath(build), "bin/vnLoad")
address = "0x08000000"

with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    with open("image.bin", "wb") as file:
        file.write(random.Random(1).randbytes(16 << 20))
    for kind in "ihex", "srec":
        subprocess.run(["objcopy", "-I", "binary", "-O", kind, "--change-addresses", address, "image.bin", "image." + kind],
                       check=True)
    for kind in "ihex", "srec":
        compare(f"reading 16 MiB from {kind} into a binary file", {
            "vnLoad info": [load, "info", "--type", kind, "image." + kind],
            "vnLoad convert": [load, "convert", "--type", kind, "image." + kind, "ours.bin", "--base", address],
            "objcopy": ["objcopy", "-I", kind, "-O", "binary", "image." + kind, "theirs.bin"],
        })
        if open("ours.bin", "rb").read() != open("theirs.bin", "rb").read():
            sys.exit("the files differ")
    for kind in "ihex", "srec":
        compare(f"writing 16 MiB as {kind}", {
            "vnLoad convert": [load, "convert", "image.bin", "ours", "--out-type", kind],
            "objcopy": ["objcopy", "-I", "binary", "-O", kind, "image.bin", "theirs"],
        })
