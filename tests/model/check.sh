#!/usr/bin/env bash
# check.sh MODEL: searches all states of the model, and shows that the search finds each fault that can be put in.
set -euo pipefail
model=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# search BREAK: prints what the checker says of the model with that fault.
search() {
    spin "-DBREAK=$1" -a "$model" >spin.log || { cat spin.log >&2; exit 1; }
    gcc -O2 -w -DSAFETY -DCOLLAPSE -DMEMLIM=2048 -o pan pan.c
    ./pan -m100000
}

search 0 >sound.log
errors=$(sed -nE 's/.*errors: ([0-9]+)$/\1/p' sound.log)
states=$(sed -nE 's/^ *([0-9]+) states, stored$/\1/p' sound.log)
if [ "$errors" != 0 ] || grep -qE 'max search depth|out of memory|truncated' sound.log; then
    cat sound.log >&2
    exit 1
fi
for fault in 1 2 3 4; do
    search "$fault" >fault.log
    if ! grep -qE 'errors: [1-9]' fault.log; then
        echo "fault $fault was not found" >&2
        exit 1
    fi
done
echo "figure: model.states $states states"
[ -z "${QELI2C_FIGURES:-}" ] || printf 'model.states\t%s\tstates\n' "$states" >>"$QELI2C_FIGURES"
