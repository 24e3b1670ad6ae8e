#!/usr/bin/env bash
# security.sh PROGRAMS BOARD_PROBE PLATFORM_PROBE: what docs/security.md promises about files, semaphores and environment.
# Ends with 77, and says so, when a part could not be checked here; everything else was.
# shellcheck disable=SC2016 # the inner shell expands
set -u
PATH=$1:$PATH board_probe=$2 platform_probe=$3
status=0 skipped=0
scratch=$(mktemp -d "${TMPDIR:-$PWD}/security-XXXXXX") || exit 1
export QELI2C_SIM_DIR=$scratch/boards
unset QELI2C_SIM QELI2C_BOARD LD_PRELOAD
trap 'qeli2c-sim stop one; rm -rf "$scratch"' EXIT
umask 000
expect() { # WHAT WANTED COMMAND...: that the command prints exactly that
    local what=$1 wanted=$2 came
    shift 2
    came=$("$@" 2>&1)
    [ "$came" = "$wanted" ] && return
    printf '%s: "%s" instead of "%s"\n' "$what" "$came" "$wanted" >&2
    status=1
}
skip() {
    echo "SKIPPED: $1" >&2
    skipped=1
}
on_board() { QELI2C_SIM=$1 "$board_probe" open /dev/i2c-0; }
sets() { ipcs -s | awk '$1 ~ /^0x/ {print $2, $4}' | sort; }

# Nothing of a board, and no semaphore, is open to others, whatever the umask.
sets >"$scratch/before"
qeli2c-sim start one >/dev/null || exit 1
board=$scratch/boards/one
expect "files open to others" "" find "$scratch/boards" ! -type l -perm /077
(eval "$(cd / && qeli2c-sim start two)" && qeli2c get board-status 0 >/dev/null
    sets >"$scratch/after" && qeli2c-sim stop two)
made=$(comm -13 "$scratch/before" "$scratch/after")
[ -n "$made" ] || { echo "no semaphore was made" >&2; status=1; }
expect "semaphores open to others" "" grep -v ' 600$' <<<"$made"

# A board that others could have put there is none.
expect "its own board" "opened plain" on_board "$board"
mkdir -m 700 "$scratch/elsewhere" "$scratch/planted"
ln -s "$board" "$scratch/link"
ln -s "$board/state" "$scratch/planted/state"
cp -a "$board/." "$scratch/elsewhere" && chmod 750 "$scratch/elsewhere"
refusal() { on_board "$1" 2>/dev/null; }
for place in link planted elsewhere; do
    expect "a $place board" "refused plain" refusal "$scratch/$place"
done
mkdir -m 777 "$scratch/run"
where() { env -u QELI2C_SIM_DIR XDG_RUNTIME_DIR="$scratch/run" qeli2c-sim run -- sh -c 'echo "${QELI2C_SIM%/*/*}"'; }
[ "$(where)" != "$scratch/run" ] || { echo "a board in a directory that others can write" >&2; status=1; }
expect "what is left there" "" ls "$scratch/run"

# Programs that were given rights ignore what their caller's environment says.
group=$(id -G | tr ' ' '\n' | grep -vx "$(id -g)" | head -n 1)
[ -n "$group" ] || [ "$(id -u)" -ne 0 ] || group=65534
with_rights() { # PROGRAM: a copy that runs with another group than its caller's
    cp "$1" "$scratch/" && chgrp "$group" "$scratch/${1##*/}" && chmod 2755 "$scratch/${1##*/}"
}
if [ -n "$group" ] && with_rights "$board_probe" && with_rights "$platform_probe" && with_rights "$(command -v qeli2c-sim)" &&
    [[ $("$scratch/${board_probe##*/}" open /dev/null) == *secure ]]; then
    secure_board() { QELI2C_SIM=$1 "$scratch/${board_probe##*/}" open /dev/i2c-9999; }
    expect "the shim with rights" "refused secure" secure_board "$board"
    trace() { QELPLATFORM_LOG=135=stderr "$1" dbg 135 text; }
    expect "a trace" $'text\n|' trace "$platform_probe"
    expect "a trace with rights" "" trace "$scratch/${platform_probe##*/}"
    [[ $(qeli2c-sim status) == *one* ]] || { echo "the list lacks the board" >&2; status=1; }
    [[ $("$scratch/qeli2c-sim" status) != *"$scratch"* && $("$scratch/qeli2c-sim" status) != *one* ]] ||
        { echo "qeli2c-sim with rights lists another's boards" >&2; status=1; }
else
    skip "programs with rights: no second group, or files here get no rights"
fi

# Another user gets nowhere.
if [ "$(id -u)" -eq 0 ] && chmod 711 "$scratch" && setpriv --reuid 65534 --regid 65534 --clear-groups "$board_probe" open / >/dev/null 2>&1; then
    as_nobody() { setpriv --reuid 65534 --regid 65534 --clear-groups "$@" 2>/dev/null; }
    other() { as_nobody env QELI2C_SIM="$board" "$board_probe" open /dev/i2c-0; }
    expect "another user's board" "refused plain" other
    expect "another user's state" "refused plain" as_nobody "$board_probe" open "$board/state"
else
    skip "another user: not root, or the programs lie where others cannot run them"
fi
[ $status -ne 0 ] || [ $skipped -eq 0 ] || exit 77
exit $status
