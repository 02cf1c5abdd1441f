#!/bin/sh
# Checks that a built library exports exactly the six Vrk* functions, nothing more.
# Usage: export_table_test.sh LIBRARY   (libcfb_vornak.so, cfb_vornak.dll or cfb_vornak.lib)
set -eu
library=$1
expected="VrkCfbAdvanceRepair VrkCfbAnalysis VrkCfbDestroy VrkCfbFileCheck VrkCfbGeneralRepair"
expected="$expected VrkCfbInit"
case "$library" in
*.dll) # the name-pointer table of the PE export directory
    actual=$(x86_64-w64-mingw32-objdump -p "$library" |
        sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
        awk '/^[[:space:]]*\[ *[0-9]+\]/ { print $NF }' | sort) ;;
*.lib) # the import library: one __imp_ thunk per export
    actual=$(x86_64-w64-mingw32-nm "$library" |
        awk '$2 == "I" && $3 ~ /^__imp_/ { sub(/^__imp_/, "", $3); print $3 }' | sort -u) ;;
*) actual=$(nm -D --defined-only "$library" | awk '{ print $NF }' | sort) ;;
esac
actual=$(echo $actual)
if [ "$actual" != "$expected" ]; then
    printf 'export table of %s differs:\nexpected: %s\nactual:   %s\n' "$library" "$expected" \
        "$actual" >&2
    exit 1
fi
echo "export table of $library: exactly the six exports"
