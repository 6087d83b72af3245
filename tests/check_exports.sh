#!/usr/bin/env bash
# Checks the shared library's dynamic interface: only tt_* and zolt_analysis_*
# functions are defined for the outside world, and the SONAME is right.
set -euo pipefail
lib=$1
exported=$(nm -D --defined-only "$lib" | awk '{ print $NF }')
stray=$(printf '%s\n' "$exported" | grep -vE '^(tt_|zolt_analysis_)' | grep -v '^ZOLT_TIMING' || true)
if [ -n "$stray" ]; then
  echo "symbols exported that should be hidden:"; printf '  %s\n' $stray; exit 1
fi
for required in tt_status_string tt_last_error tt_software_version tt_firmware_version; do
  printf '%s\n' "$exported" | grep -qx "$required" || { echo "missing export: $required"; exit 1; }
done
soname=$(readelf -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = libzolt_timing.so.0 ] || { echo "SONAME is '$soname', want libzolt_timing.so.0"; exit 1; }
echo "$(printf '%s\n' "$exported" | wc -l) exported symbols, all tt_*/zolt_analysis_*; SONAME $soname"
