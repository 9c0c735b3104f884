#!/bin/sh
# check_exports.sh LIB HEADER_DIR - every function declared with VQXML_API in
# the library's headers is exported by LIB with C linkage, and nothing with
# C++ linkage is exported.
set -eu
lib=$1
dir=$2
exported=$(nm -D --defined-only "$lib" | awk '{print $3}' | sort -u)
missing=0
for name in $(grep -rh 'VQXML_API' "$dir" | grep -v '^#' | grep -oE 'VQXML_API[^;(]*[ *]([A-Za-z_][A-Za-z0-9_]*) *\(' \
              | sed -E 's/.*[ *]([A-Za-z_][A-Za-z0-9_]*) *\($/\1/' | sort -u); do
  if ! printf '%s\n' "$exported" | grep -qx "$name"; then
    echo "not exported: $name"
    missing=1
  fi
done
for name in docHead dontRealloc allocMemDocArea XmlTraceHandle XmlTraceFlag liTIKS chType; do
  printf '%s\n' "$exported" | grep -qx "$name" || { echo "table not exported: $name"; missing=1; }
done
mangled=$(printf '%s\n' "$exported" | grep '^_Z' || true)
if [ -n "$mangled" ]; then
  echo "exported with C++ linkage:"; printf '%s\n' "$mangled"; missing=1
fi
[ "$missing" -eq 0 ] && echo "exports ok ($(printf '%s\n' "$exported" | wc -l) symbols)"
exit $missing
