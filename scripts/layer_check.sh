#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Every quoted include of the library and the tool points to its own folder
# or a lower one: include/ -> platform/ -> services/ -> base/ -> asn1/ ->
# pki/ -> verify/ -> tool/ (forge sits beside the tool).
set -euo pipefail
cd "$(dirname "$0")/.."
rank() {
  case $1 in
    include|vexa|kestrel) echo 0 ;; platform) echo 1 ;; services) echo 2 ;; base) echo 3 ;;
    asn1) echo 4 ;; pki) echo 5 ;; verify) echo 6 ;; tool|forge) echo 7 ;; *) echo 99 ;;
  esac
}
bad=0
while IFS= read -r line; do
  file=${line%%:*}
  target=$(sed -E 's/.*#include "([^"]+)".*/\1/' <<<"${line#*:}")
  from=$(rank "${file%%/*}")
  # a bare name is the file's own folder (tool/checktool.h, forge/forge.h)
  case $target in */*) to=$(rank "${target%%/*}") ;; *) to=$from ;; esac
  if [ "$to" -gt "$from" ]; then
    echo "$file includes $target, a higher layer" >&2
    bad=1
  fi
done < <(git grep -n '#include "' -- include platform services base asn1 pki verify tool forge |
         sed -E 's/^([^:]+):[0-9]+:/\1:/')
exit $bad
