#!/usr/bin/env bash
# Installs the Debian packages that a purpose needs, with what those need, and nothing when all are there.
#
#   tools/setup.sh [build] [test] [bench]      default: build
set -euo pipefail

# What building and run.sh need; the cross tools are what the sample firmware is made with.
build="ca-certificates ccache cmake g++ ninja-build python3-minimal pkg-config
    qt6-base-dev qt6-svg-dev libgl-dev zlib1g-dev libbz2-dev libiberty-dev libedit-dev libgtest-dev libgmock-dev
    gcc-arm-none-eabi libnewlib-arm-none-eabi libstdc++-arm-none-eabi-dev gcc-riscv64-unknown-elf
    clang-14 lld-14 llvm-14-linker-tools libllvm14 qemu-system-arm"
# What the tests and checks need besides.
test="$build git make libclang-rt-14-dev clang-format-14 qemu-system-misc gdb-multiarch gdbserver
    libhunspell-dev hunspell-en-us libclang1-14 libclang-common-14-dev openocd socat xvfb xauth"
# The peers of the benchmarks.
bench="$test libbenchmark-dev hyperfine elfutils libdw-dev libelf-dev duktape gforth libpugixml-dev zip unzip srecord
    nodejs"

wanted=""
for purpose in "${@:-build}"; do
    case $purpose in
        build | test | bench) wanted+=" ${!purpose}" ;;
        *) echo "setup.sh: unknown purpose '$purpose'; known: build, test, bench" >&2; exit 2 ;;
    esac
done

missing=""
for package in $wanted; do
    case " $missing " in *" $package "*) continue ;; esac
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=" $package"
done
# A Node.js that isn't Debian's serves as well.
command -v node >/dev/null && missing=${missing/ nodejs/}
[ -n "$missing" ] || exit 0

as_root=""
if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null || { echo "setup.sh: run as root, or install sudo; missing:$missing" >&2; exit 1; }
    as_root=sudo
fi
echo "setup.sh: installing$missing" >&2
$as_root apt-get -o DPkg::Lock::Timeout=900 update -qq
# shellcheck disable=SC2086
$as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -o DPkg::Lock::Timeout=900 install -y -qq --no-install-recommends $missing >/dev/null
