#!/usr/bin/env bash
# abi.sh SOURCES: the library is what was recorded, and a library that is not is found out, unless the changelog says so.
set -u
cd "$1" || exit 1
scratch=$(mktemp -d "${TMPDIR:-/tmp}/qeli2c-abi-XXXXXX") || exit 1
trap 'rm -rf "$scratch"' EXIT
status=0
library=$scratch/libqeli2c.so.1 record=abi/libqeli2c.abi
scripts/abi build "$library" && scripts/abi check "$library" || exit 1

expect() { # WHAT WANTED LIBRARY RECORD CHANGELOG-LINE
    local came=0
    printf '## [Unreleased]\n\n### ABI\n\n%s\n\n## [1.0.0]\n\n### ABI\n\n- Breaking: all\n' "$5" >"$scratch/CHANGELOG.md"
    scripts/abi check "$3" "$4" "$scratch/CHANGELOG.md" >"$scratch/out" 2>&1 || came=1
    [ "$came" -eq "$2" ] && return
    echo "$1: $came instead of $2:" >&2
    cat "$scratch/out" >&2
    status=1
}
mkdir "$scratch/include"
sed 's/uint32_t swi_chnl;/uint64_t swi_chnl;/' include/qeli2c.h >"$scratch/include/qeli2c.h"
scripts/abi build "$scratch/changed.so" "$scratch/include" || exit 1
awk -v name="name='reverseArray'" '/<function-decl/ && index($0, name) { skip = 1 } !skip && !index($0, name) { print } /<\/function-decl>/ { skip = 0 }' \
    "$record" >"$scratch/before.abi"
sed "s/name='reverseArray'.*func-type.*/&\n<elf-symbol name='reverseMore' type='func-type' binding='global-binding' visibility='default-visibility' is-defined='yes'\/>/" \
    "$record" >"$scratch/removed.abi"
expect "a longer record" 1 "$scratch/changed.so" "$record" ""
expect "a longer record, another announced" 1 "$scratch/changed.so" "$record" "- Breaking: tpa626_info grows"
expect "a longer record as an addition" 1 "$scratch/changed.so" "$record" "- Added: ei2c_client"
expect "a longer record that is announced" 0 "$scratch/changed.so" "$record" "- Breaking: ei2c_client, and with it tpa626_info"
expect "a new call" 1 "$library" "$scratch/before.abi" ""
expect "a new call that is announced" 0 "$library" "$scratch/before.abi" "- Added: reverseArray"
expect "a call that is gone" 1 "$library" "$scratch/removed.abi" "- Added: reverseMore"
expect "a call that is announced to go" 0 "$library" "$scratch/removed.abi" "- Breaking: reverseMore is gone"
exit $status
