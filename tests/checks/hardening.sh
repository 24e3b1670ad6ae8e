#!/usr/bin/env bash
# hardening.sh BUILD OBJECT...: what the linker and the compiler can do against exploits is in each object.
# In a build tree objects find each other by absolute run paths below BUILD; an installation takes those out.
set -u
build=$1
shift
status=0
wrong() {
    echo "${object##*/}: $1" >&2
    status=1
}
# calls NAME: the object calls a function whose name matches.
calls() { nm -D --undefined-only "$object" | grep -qE " U $1(@|\$)"; }

for object in "$@"; do
    headers=$(readelf -Wl "$object") dynamic=$(readelf -Wd "$object") header=$(readelf -h "$object")
    if [ -z "$headers" ] || [ -z "$dynamic" ]; then
        wrong "cannot be read"
        continue
    fi
    grep -q 'Type: *DYN' <<<"$header" || wrong "its addresses are fixed"
    grep -q INTERP <<<"$headers" && { grep -q 'FLAGS_1.*PIE' <<<"$dynamic" || wrong "a program that is no PIE"; }
    grep -q GNU_RELRO <<<"$headers" || wrong "relocations stay writable"
    grep -qE 'FLAGS.*(BIND_NOW|NOW)' <<<"$dynamic" || wrong "bound lazily: the tables of functions stay writable"
    grep -qE 'GNU_STACK .* RW ' <<<"$headers" || wrong "an executable stack"
    grep -qE 'LOAD .* (RWE|WE) ' <<<"$headers" && wrong "memory that is writable and executable"
    grep -q TEXTREL <<<"$dynamic" && wrong "code with relocations"
    while IFS= read -r path; do
        [[ $path == "$build"/* ]] || wrong "a run path that leads elsewhere: \"$path\""
    done < <(sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]/\2/p' <<<"$dynamic" | tr ':' '\n' | sed '/./!d')
    calls '__[a-z]+_chk' || wrong "no checked call of libc, though it fills buffers"
    if grep -q 'Machine:.*X86-64' <<<"$header"; then
        calls __stack_chk_fail || wrong "no stack protector"
        # Debian's start files carry no note for it, so no object does; the instruction tells (endbr64).
        [ "$(LC_ALL=C grep -aoP '\xf3\x0f\x1e\xfa' "$object" | wc -l)" -gt 20 ] || wrong "no marks where indirect branches land"
    elif grep -q INTERP <<<"$headers"; then
        # On 32-bit ARM the libraries do without: the guard would be one more library that they need.
        calls __stack_chk_fail || wrong "no stack protector"
    fi
done
exit $status
