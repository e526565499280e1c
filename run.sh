#!/usr/bin/env bash
# Sets up what is missing, builds, and shows each program at work on the samples in examples/.
set -euo pipefail
cd "$(dirname "$0")"
tools/setup.sh build
tools/build.sh release programs
bin=$PWD/build/release/bin
out=$PWD/build/examples
show() { echo "\$ $(sed "s|$bin/||g; s|$out/||g; s|$PWD/||g" <<<"$*")"; "$@"; }

echo "== examples/blinky: built, run in the emulator, looked at"
blinky=examples/blinky
show "$bin/vnBuild" "$blinky/blinky.vnProject" --config Debug
show timeout 4 qemu-system-arm -M lm3s6965evb -nographic -monitor none -serial stdio \
    -kernel "$blinky/Output/Debug/Exe/blinky.elf" 2>/dev/null </dev/null | head -n 4 || true
show "$bin/vnDump" print "$blinky/Output/Debug/Exe/blinky.elf" vectors --elements 3
show "$bin/vnDump" disassemble "$blinky/Output/Debug/Exe/blinky.elf" --function Reset_Handler --source | head -n 20
for example in library-and-app riscv-hello; do
    show "$bin/vnBuild" --quiet "examples/$example/$example.vnProject" --config Release
done

echo "== link-time optimisation of examples/lto-demo"
examples/lto-demo/build.sh "$bin/ltollvm" "$out/lto-demo"
firmware=$out/lto-demo/lto.elf

echo "== looking into that firmware"
show "$bin/vnDump" elf "$firmware" --segments
show "$bin/vnDump" symbol "$firmware" Reset_Handler
show "$bin/vnDump" line "$firmware" "$("$bin/vnDump" symbol "$firmware" main | cut -d' ' -f1)"
show "$bin/vnDump" frame "$firmware" --stack-usage

echo "== load files and packages"
show "$bin/vnLoad" convert "$firmware" "$out/firmware.hex"
show "$bin/vnLoad" info "$out/firmware.hex"
(cd "$out" && show "$bin/vnPack" create firmware.vnPackage firmware.hex lto-demo/lto.elf && show "$bin/vnPack" list firmware.vnPackage)

echo "== description files and expressions"
show "$bin/vnXml" process examples/description/device.xml --macros "DEVICE=demo;SERIES=M3;RAM_KB=64" --expand
show "$bin/vnXml" eval "(0x20000000 + 64 * 1024) & ~0xFF"

echo "== scripts"
show "$bin/vnScript" examples/scripts/primes.js 60
show "$bin/vnScript" examples/scripts/primes.fs
echo "== shown: firmware built by vnBuild, run and looked into; another linked with link-time optimisation and run, its tables, lines and load files, a package,"
echo "   a resolved description, and the same primes from JavaScript and Forth"
