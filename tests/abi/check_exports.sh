#!/bin/sh
# check_exports.sh LIB HEADER_DIR - every function declared with VQXML_API in
# the library's headers is exported by LIB with C linkage, and nothing with
# C++ linkage is exported.
set -eu
lib=$1
dir=$2
exported=$(nm -D --defined-only "$lib" | awk '{print $3}' | sort -u)
missing=0
for name in $(grep -rhoE 'VQXML_API[^;(]*[ *]([A-Za-z_][A-Za-z0-9_]*) *\(' "$dir" \
              | sed -E 's/.*[ *]([A-Za-z_][A-Za-z0-9_]*) *\($/\1/' | sort -u); do
  if ! printf '%s\n' "$exported" | grep -qx "$name"; then
    echo "not exported: $name"
    missing=1
  fi
done
mangled=$(printf '%s\n' "$exported" | grep '^_Z' || true)
if [ -n "$mangled" ]; then
  echo "exported with C++ linkage:"; printf '%s\n' "$mangled"; missing=1
fi
[ "$missing" -eq 0 ] && echo "exports ok ($(printf '%s\n' "$exported" | wc -l) symbols)"
exit $missing
