#!/usr/bin/env bash
# installed.sh BUILD SOURCES: what is installed serves by itself, wherever it lies: the examples are built against it, by
# pkg-config and by CMake, and run on the simulated board that was installed with it.
set -euo pipefail
build=$1 sources=$2
scratch=$(mktemp -d "${TMPDIR:-/tmp}/qeli2c-install-XXXXXX")
trap 'rm -rf "$scratch"' EXIT
export QELI2C_SIM_DIR=$scratch/boards
unset QELI2C_BOARD QELI2C_SIM LD_PRELOAD LD_LIBRARY_PATH
fail() { echo "$*" >&2; exit 1; }

# Staged for one prefix, then moved to another.
DESTDIR=$scratch/stage cmake --install "$build" --prefix /opt/qeli2c >"$scratch/log" || fail "$(cat "$scratch/log")"
[ "$(ls "$scratch/stage")" = opt ] || fail "installed outside of DESTDIR's prefix: $(ls "$scratch/stage")"
mv "$scratch/stage/opt/qeli2c" "$scratch/moved"
prefix=$scratch/moved
pkgconfig=$(dirname "$(find "$prefix" -name qeli2c.pc)")
libdir=${pkgconfig%/pkgconfig}
export LD_LIBRARY_PATH=$libdir

# Nothing of this tree, and nothing of the first prefix, is in it.
while IFS= read -r object; do
    ! readelf -d "$object" 2>/dev/null | grep -E 'RPATH|RUNPATH' || fail "$object has a run path"
done < <(find "$prefix" -type f \( -perm -u+x -o -name '*.so*' \))
! grep -rlF -e "$build" -e "$sources" -e /opt/qeli2c "$prefix/include" "$libdir/pkgconfig" "$libdir/cmake" "$prefix/share/man" ||
    fail "they name where they come from"
for wanted in include/qelplatform.h bin/qeli2c bin/qeli2c-sim bin/qeli2c-stress share/qeli2c/boards/board.schema.json \
    share/man/man1/qeli2c.1 share/man/man1/qeli2c-sim.1 share/man/man3/qeli2c.3 share/bash-completion/completions/qeli2c share/doc/qeli2c/CHANGELOG.md; do
    [ -s "$prefix/$wanted" ] || fail "no $wanted"
done

on_board() { "$prefix/bin/qeli2c-sim" run -- "$@" >"$scratch/out" 2>&1 || fail "$*: $(cat "$scratch/out")"; }
uses() { # PROGRAM: with the installed library and no other
    local libraries
    libraries=$(ldd "$1")
    [[ $libraries == *"$libdir/libqeli2c.so.1"* ]] || fail "$1 has another library: $libraries"
    on_board "$1"
}
examples=$prefix/share/doc/qeli2c/examples
flags() { PKG_CONFIG_PATH=$pkgconfig pkg-config --cflags --libs qeli2c; }
eval "cc -Wall -Werror -std=c11 '$examples/board_tour.c' -o '$scratch/tour' $(flags)"
eval "c++ -Wall -Werror '$examples/board_power.cpp' -o '$scratch/power' $(flags)"
uses "$scratch/tour"
uses "$scratch/power"
grep -q '^power-12v  *12\.' "$scratch/out" || fail "no 12 V: $(cat "$scratch/out")"

cmake -S "$examples" -B "$scratch/consumer" -D CMAKE_PREFIX_PATH="$prefix" >"$scratch/log" 2>&1 &&
    cmake --build "$scratch/consumer" >>"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
uses "$scratch/consumer/board_tour"
uses "$scratch/consumer/board_power"
on_board "$prefix/bin/qeli2c" scan 4
grep -q id-eeprom "$scratch/out" || fail "no id-eeprom: $(cat "$scratch/out")"
on_board "$prefix/bin/qeli2c-stress" --help

# A board's own platform services are linked instead of this host's.
{ cmake -G Ninja -S "$sources" -B "$scratch/board" "-DQELI2C_PLATFORM_LIBRARIES=-L$libdir;-lqelplatform" &&
    cmake --build "$scratch/board" --target qeli2c; } >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
[ -e "$scratch/board/lib/libqeli2c.so.1" ] && [ ! -e "$scratch/board/lib/libqelplatform.so.1" ] || fail "$(ls "$scratch/board/lib")"
