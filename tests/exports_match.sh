#!/bin/sh
# Compares the dynamic symbols a library defines with its intended list, exactly: a symbol the
# list does not name is an unexpected export (a leak into the binary interface), a listed symbol
# the library lacks is a missing one.
#   exports_match.sh <nm> <library> <list>      "exports match" or one line per difference
#   exports_match.sh <nm> <library> --print     the library's list, in the list's format
# List lines: "<nm type> <mangled name>[@@<version>]", then optionally "# <demangled name>".
set -u
NM=$1 LIB=$2 LIST=$3
ACTUAL=$("$NM" -D --defined-only "$LIB" | awk 'NF == 3 { print $2, $3 }' | LC_ALL=C sort) ||
    { echo "cannot list the symbols of $LIB"; exit 2; }
if [ "$LIST" = --print ]; then
    printf '%s\n' "$ACTUAL" | while read -r type name; do
        echo "$type $name  # $(printf '%s' "${name%%@*}" | c++filt)"
    done
    exit 0
fi
[ -r "$LIST" ] || { echo "cannot read $LIST"; exit 2; }
EXPECTED=$(sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$LIST" | awk '{ print $1, $2 }' | LC_ALL=C sort)
TMP=$(mktemp -d) || exit 2
trap 'rm -rf "$TMP"' EXIT
printf '%s\n' "$EXPECTED" >"$TMP/expected"
printf '%s\n' "$ACTUAL" >"$TMP/actual"
status=0
for sym in $(LC_ALL=C comm -13 "$TMP/expected" "$TMP/actual" | tr ' ' '|'); do
    name=${sym#*|}
    echo "unexpected export: ${sym%%|*} $name ($(printf '%s' "${name%%@*}" | c++filt))"
    status=1
done
for sym in $(LC_ALL=C comm -23 "$TMP/expected" "$TMP/actual" | tr ' ' '|'); do
    name=${sym#*|}
    echo "missing export: ${sym%%|*} $name ($(printf '%s' "${name%%@*}" | c++filt))"
    status=1
done
[ $status -eq 0 ] && echo "exports match $LIST"
exit $status
