#!/usr/bin/env bash
# Installs the Debian packages of the groups named (see scripts/packages.txt) that are missing; `all` is
# every group. With nothing missing it asks dpkg once and returns at once, offline too.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

list=scripts/packages.txt
known=$(awk '!/^#/ && NF { print $1 }' "$list" | sort -u)

groups=("$@")
[[ $# -gt 0 && $1 != all ]] || mapfile -t groups <<<"$known"
for group in "${groups[@]}"; do
  grep -qx "$group" <<<"$known" || {
    echo "setup: no group named $group; there are: ${known//$'\n'/ }" >&2
    exit 2
  }
done

mapfile -t wanted < <(awk -v groups=" ${groups[*]} " \
  '!/^#/ && NF && index(groups, " " $1 " ") { print $2 }' "$list" | sort -u)

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  # The build itself is not tied to Debian: whoever has brought these by other means can go on.
  echo "setup: this is no Debian-like system; provide what these packages hold: ${wanted[*]}" >&2
  exit 0
fi

# dpkg-query fails when it knows nothing of a package: what it does know decides.
installed() {
  dpkg-query -W -f='${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null || true
}
mapfile -t missing < <(comm -23 <(printf '%s\n' "${wanted[@]}") \
  <(installed | awk '$1 == "installed" { print $2 }' | sort -u))
((${#missing[@]})) || exit 0

as_root=()
if [[ $EUID -ne 0 ]]; then
  command -v sudo >/dev/null || {
    echo "setup: not root, and there is no sudo. As root, run:" \
      "apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  }
  as_root=(sudo)
  [[ -t 0 ]] || as_root=(sudo -n) # nobody there to type a password
fi

echo "setup: installing ${missing[*]}"
apt() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o Dpkg::Use-Pty=0 \
    -o Acquire::Retries=3 "$@" </dev/null
}
# An unreachable source must not stop us when another one has what is missing: the install tells.
apt update >/dev/null || echo "setup: apt-get update failed; trying with the lists at hand" >&2
apt install --no-install-recommends "${missing[@]}" >/dev/null || {
  echo "setup: apt-get could not install ${missing[*]}" >&2
  exit 1
}
