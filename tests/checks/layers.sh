#!/usr/bin/env bash
# layers.sh SOURCE_TREE: each side effect has one door, and folders use only what stands below them.
set -u
cd "$1" || exit 1
status=0
# forbid WHAT PATTERN FILES...: no line of the files matches the pattern.
forbid() {
    local what=$1 pattern=$2 hits
    shift 2
    hits=$(grep -nE "$pattern" "$@" 2>/dev/null)
    [ -z "$hits" ] && return
    printf '%s:\n%s\n' "$what" "$hits" >&2
    status=1
}
library=$(git ls-files bus api drivers epld 2>/dev/null | grep -E '\.(cpp|h)$')
[ -n "$library" ] || library=$(find bus api drivers epld -name '*.cpp' -o -name '*.h' 2>/dev/null)
[ -n "$library" ] || { echo "no library sources found" >&2; exit 1; }
outside() { printf '%s\n' "$library" | grep -vE "^($1)"; }
within() { printf '%s\n' "$library" | grep -E "^($1)"; }
# shellcheck disable=SC2046,SC2086 # the lists of files are to be split
{
    forbid "i2c-dev requests outside raw_transfer" '\bioctl *\(|I2C_RDWR,|linux/i2c-dev' $(outside bus/ui2c_ioctls/raw_transfer)
    forbid "device files opened or locks taken outside bus_lock" '\b(sigwrap_open|open|OAL_Sem[A-Za-z]*|file_lock_write|file_unlock) *\(' \
        $(outside 'bus/ui2c_ioctls/bus_lock|drivers/ee_at24c512')
    forbid "a second retry loop" 'try_limit' $(outside bus/ui2c_ioctls/)
    forbid "bus uses what stands above it" '#include "(api|drivers|epld|simboard|tools)/' $(within bus/)
    forbid "the library uses the simulated board or the tools" '#include "(simboard|tools)/' $library
    forbid "C++ run-time features in the library" '\b(throw|new|dynamic_cast|typeid|std::(string|vector|function))\b *[^_.;]*[;({<]' $library
    forbid "__FILE__ in the library" '__FILE__' $library
}
simulated=$(find simboard -name '*.cpp' -o -name '*.h')
# shellcheck disable=SC2086 # as above
forbid "the simulated board uses the library" '#include "(bus|api|drivers|epld|platform)/|qeli2c\.h' $simulated
exit $status
