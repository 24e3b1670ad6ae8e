#!/usr/bin/env bash
# selftest_notices.sh PROGRAMS BROKEN_PLATFORM EXPECTED: 'qeli2c selftest' finds what is broken of platform services, and each of its
# checks can fail.
set -u
PATH=$1:$PATH platform=$2 expected=$3
came=$(for how in open refuse leaky; do
    echo "$how"
    BROKEN=$how LD_PRELOAD=$platform qeli2c-sim run -- qeli2c selftest --address 0x1E78A088 2>&1 || echo "? $?"
done | sed 's/took [0-9]* ms/took N ms/')
[ -z "${QELI2C_RECORD:-}" ] || printf '%s\n' "$came" >"$expected"
diff "$expected" <(printf '%s\n' "$came") || exit 1
# The owner table is no service of the platform.
never=$(comm -23 <(sed -nE 's/^(ok|FAILED) +//p' "$expected" | sed 's/: .*//' | sort -u) \
    <(sed -nE 's/^FAILED +//p' "$expected" | sed 's/: .*//' | sort -u))
[ "$never" = "memory         the access-owner table is mapped" ] || { echo "never failed: $never"; exit 1; }
