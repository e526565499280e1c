#!/usr/bin/env python3
"""vnPack beside zip and unzip:  bench/packages.py [PROGRAMS]      (default: build/release/bin)

Input: 3,000 files, 200 MB, made from a fixed seed: two thirds text, the rest tables of numbers and a tenth
of noise. Packing and unpacking count wall time, as the deflate of the one stream runs on all processors;
the other lines count CPU time.
"""
import pathlib
import random
import shutil
import struct
import sys
import tempfile

from compare import compare

FILES, BYTES = 3000, 200_000_000


def make_tree(folder):
    rng = random.Random(8)
    letters = "etaoinshrdlucmfwypvbgkjqxz"
    words = ["".join(rng.choices(letters, range(26, 0, -1), k=rng.randint(2, 9))) for _ in range(4000)]
    text = " ".join(rng.choices(words, [1 / (i + 1) for i in range(4000)], k=900_000)).encode()
    numbers = struct.pack("<1000000I", *(0x20000000 + (rng.getrandbits(16) << 2) for _ in range(1_000_000)))
    noise = rng.randbytes(4_000_000)
    weights = [rng.lognormvariate(0, 1.2) for _ in range(FILES)]
    for i, weight in enumerate(weights):
        source = rng.choices((text, numbers, noise), (65, 25, 10))[0]
        left = int(weight * BYTES / sum(weights))
        path = folder / f"part{i % 30}" / f"file{i}"
        path.parent.mkdir(exist_ok=True)
        with path.open("wb") as file:
            while left > 0:
                size = min(left, rng.randint(200, 20_000))
                start = rng.randrange(len(source) - size)
                file.write(source[start:start + size])
                left -= size


def main():
    programs = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "build/release/bin").resolve()
    pack = programs / "vnPack"
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "tree").mkdir()
        make_tree(folder / "tree")
        ours, theirs = folder / "a.vnPackage", folder / "a.zip"
        compare("pack, zlib", {
            "vnPack create": [pack, "create", ours, "tree"],
            "zip": ["sh", "-c", f"rm -f {theirs}; zip -q -r {theirs} tree"],
        }, rounds=3, wall=True, cwd=folder)
        print(f"  {ours.stat().st_size / 1e6:.1f} MB, zip {theirs.stat().st_size / 1e6:.1f} MB")
        compare("unpack", {
            "vnPack extract": ["sh", "-c", f"{pack} extract {ours} --into x && rm -rf x"],
            "vnPack test": [pack, "test", ours],
            "unzip": ["sh", "-c", f"unzip -q {theirs} -d x && rm -rf x"],
        }, rounds=3, wall=True, cwd=folder)
        middle = "tree/part22/file1522"  # the folders are packed in the order of their names
        compare("one member in the middle", {
            "vnPack cat": [pack, "cat", ours, middle],
            "vnPack test, the whole stream": [pack, "test", ours],
            "unzip -p": ["unzip", "-p", theirs, middle],
        }, rounds=3)
        compare("list", {
            "vnPack list": [pack, "list", ours],
            "unzip -l": ["unzip", "-l", theirs],
        })
        shutil.rmtree(folder / "tree")


if __name__ == "__main__":
    main()
