#!/usr/bin/env bash
# leak_hooks_in_object_code.sh NM ON|OFF OBJECT: the code of the reference paths refers to the leak
# tracker exactly when the hooks are built in. Without them their cost is nothing at all.
set -euo pipefail
nm=$1 hooks=$2 object=$3

symbols=$("$nm" "$object")
grep -q CDependenciesObjectVS20127AcquireEv <<<"$symbols" || {
  echo "$object doesn't look like the root object's code" >&2
  exit 1
}
found=OFF
! grep -q 'CLeaks' <<<"$symbols" || found=ON
[[ $found == "$hooks" ]] || {
  echo "the hooks are $hooks, but references to the tracker are $found" >&2
  exit 1
}
