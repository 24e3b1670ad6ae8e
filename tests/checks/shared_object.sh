#!/usr/bin/env bash
# shared_object.sh OBJECT NAMES NEEDED...: the object exports exactly the names in the file, and needs exactly the named libraries.
set -u
object=$1 names=$2
shift 2
status=0
exported=$(nm -D --defined-only "$object" | awk '{print $3}' | LC_ALL=C sort)
if ! diff <(LC_ALL=C sort "$names") <(printf '%s\n' "$exported"); then
    echo "exported names of ${object##*/} differ from ${names##*/} (> is exported but not listed)" >&2
    status=1
fi
needed=$(readelf -d "$object" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | LC_ALL=C sort | tr '\n' ' ')
wanted=$(printf '%s\n' "$@" | LC_ALL=C sort | tr '\n' ' ')
if [ "$needed" != "$wanted" ]; then
    echo "${object##*/} needs: $needed instead of: $wanted" >&2
    status=1
fi
exit $status
