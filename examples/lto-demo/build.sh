#!/usr/bin/env bash
# Builds the firmware with and without link-time optimisation, compares the two and runs the first.
#
#   build.sh LTOLLVM OUT     the driver, a folder for what is made
set -euo pipefail
ltollvm=$1
out=$2
cd "$(dirname "$0")"
mkdir -p "$out"
bitcode_sources="main filter motor"
target="--target=thumbv7m-none-eabi -mcpu=cortex-m3 -Os -g -ffreestanding -fshort-enums -ffunction-sections -fdata-sections"
gcc="arm-none-eabi-gcc -mcpu=cortex-m3 -mthumb -Os -g -ffunction-sections -fdata-sections"

for name in $bitcode_sources; do
    clang-14 $target -flto -c $name.c -o "$out/$name.bc"
    clang-14 $target -c $name.c -o "$out/$name.plain.o"
done
for name in startup print unused; do $gcc -c $name.c -o "$out/$name.o"; done
$gcc -c semihost.S -o "$out/semihost.o"
rm -f "$out/libprint.a"
arm-none-eabi-ar rc "$out/libprint.a" "$out/print.o" "$out/unused.o"

# The driver takes the bitcode out of the list of inputs, compiles it into one object and leaves the rest to
# the linker.
objects="startup.o semihost.o"
for input in $objects main.bc filter.bc motor.bc libprint.a; do echo "\"$out/$input\""; done >"$out/inputs.txt"
library=$(llvm-config-14 --libdir 2>/dev/null || dirname "$(dpkg -L llvm-14-linker-tools | grep '/libLTO\.so')")/libLTO.so.14
"$ltollvm" -fdata-sections -ffunction-sections -mcpu=cortex-m3 -O2 \
    "$library" "$out/inputs.txt" "$out/linker-inputs.txt" "$out/lto.o"

link="$gcc -nostartfiles -T link.ld -Wl,--gc-sections,-z,noexecstack"
$link "$out/lto.o" "@$out/linker-inputs.txt" -o "$out/lto.elf"
$link "$out"/{main,filter,motor}.plain.o "$out"/{startup,semihost}.o "$out/libprint.a" -o "$out/plain.elf"

functions() { arm-none-eabi-nm --defined-only "$@" | awk '$2 ~ /[Tt]/ && $3 !~ /^\$/ {print $3}' | sort; }
flash() { arm-none-eabi-size "$1" | awk 'NR == 2 {print $1 + $2}'; }
echo "inputs that stay with the linker:"
sed 's|.*/|  |; s|"$||' "$out/linker-inputs.txt"
echo "functions of the bitcode that link-time optimisation removed or inlined:"
comm -23 <(functions "$out"/{main,filter,motor}.plain.o) <(functions "$out/lto.o") | sed 's/^/  /'
echo "flash: $(flash "$out/plain.elf") bytes without, $(flash "$out/lto.elf") bytes with link-time optimisation"
if command -v qemu-system-arm >/dev/null; then
    echo "running it in the emulator:"
    qemu-system-arm -M mps2-an385 -nographic -serial null -monitor none \
        -semihosting-config enable=on,target=native -kernel "$out/lto.elf" </dev/null 2>&1 | sed 's/^/  /'
fi
