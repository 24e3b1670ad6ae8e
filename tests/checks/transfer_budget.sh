#!/usr/bin/env bash
# transfer_budget.sh COUNTED_CALLS: what one access through the library executes, counted by callgrind: instructions
# outside the kernel, at most so many, and exactly as many system calls as when they are written by hand. The program
# itself fails when an access allocates, opens or sleeps. Skipped (77) without valgrind.
set -euo pipefail
program=$1
calls=500

# kind, switches, most instructions
budgets="rdwr 0 1350
rdwr 1 2600
rdwr 2 3850
smbus 0 1600
smbus 1 2850
smbus 2 4100"

for kind in rdwr smbus; do "$program" library "$kind" 2 1000; done
command -v valgrind >/dev/null || { echo "SKIPPED: valgrind is missing, nothing was counted by it"; exit 77; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# count WAY KIND SWITCHES: instructions and system calls of all calls. A look at the clock is a system call here, too.
count() {
    valgrind --tool=callgrind --collect-systime=yes --toggle-collect=counted --callgrind-out-file="$scratch/out" \
        "$program" "$@" "$calls" 2>&1 | sed -nE 's/.*Collected : ([0-9]+) ([0-9]+).*/\1 \2/p'
}

failed=0
while read -r kind switches most; do
    read -r instructions requests < <(count library "$kind" "$switches")
    read -r _ wanted < <(count by_hand "$kind" "$switches")
    each=$((instructions / calls))
    requests=$((requests / calls)) wanted=$((wanted / calls))
    echo "$kind, $switches switches: $each instructions of at most $most, $requests system calls, $wanted by hand"
    [ "$each" -gt 0 ] && [ "$each" -le "$most" ] && [ "$requests" -eq "$wanted" ] || { echo "^ FAILED"; failed=1; }
done <<<"$budgets"
exit "$failed"
