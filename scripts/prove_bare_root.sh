#!/usr/bin/env bash
# Proves in a bare Debian 12 root, made with debootstrap below build/, with no compiler, no make and no git
# in it, what a newcomer is promised. As root.
#
#   prove_bare_root.sh [STEP...]      steps: demo test packages; all of them by default
#
# demo and test run ./dev in a copy of this checkout without .git. packages installs what ./dev package left
# in ./dist in a second bare root and runs the tool there.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

[[ $EUID -eq 0 ]] || {
  echo "prove: needs root, for debootstrap and chroot" >&2
  exit 1
}
[[ $# -gt 0 ]] || set -- demo test packages

work=$PWD/build/bare
root=
mkdir -p "$work"

# The mirror is the one that this machine uses itself.
suite=bookworm
# shellcheck disable=SC2016  # the format's own $(...), for apt-get
mirror=$(apt-get indextargets --format '$(REPO_URI)|$(CODENAME)|$(ORIGIN)' "Created-By: Packages" |
  awk -F'|' -v suite=$suite '$2 == suite && $3 == "Debian" { print $1; exit }')
[[ -n $mirror ]] || {
  echo "prove: this machine's apt knows no mirror of Debian $suite; run apt-get update first" >&2
  exit 1
}

leave() {
  [[ -z $root ]] || umount "$root/dev/pts" "$root/proc" "$root/sys" 2>/dev/null || true
}
trap leave EXIT

# fresh_root NAME: a bare root, from a tar file of the first one made.
fresh_root() {
  leave
  root=$work/$1
  if [[ ! -f $work/minimal.tar ]]; then
    echo "prove: debootstrap of $suite"
    rm -rf "$work/minimal"
    debootstrap --variant=minbase "$suite" "$work/minimal" "$mirror" >"$work/debootstrap.log" 2>&1 || {
      tail -n 20 "$work/debootstrap.log" >&2
      exit 1
    }
    tar -C "$work/minimal" -cf "$work/minimal.tar" .
    rm -rf "$work/minimal"
  fi
  rm -rf "$root"
  mkdir -p "$root"
  tar -C "$root" -xf "$work/minimal.tar"
  # How to reach the mirror from here: name service, and a proxy if apt is told of one.
  cp /etc/resolv.conf /etc/hosts "$root/etc/"
  apt-config dump | grep -E '^Acquire::(https?::[Pp]roxy|Check-)' >"$root/etc/apt/apt.conf.d/90machine" || true
  # What any running system has: x265 counts processors through the first two, and what the tool shows on a
  # terminal is tested on a pseudo-terminal.
  mount -t proc proc "$root/proc"
  mount -t sysfs -o ro sysfs "$root/sys"
  mkdir -p "$root/dev/pts"
  mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
  ln -sf pts/ptmx "$root/dev/ptmx"
  local program
  for program in cc g++ clang make ninja cmake git python3; do
    ! chroot "$root" bash -c "command -v $program" || {
      echo "prove: the root is not bare: it has $program" >&2
      exit 1
    }
  done
}

# inside COMMAND: in the root, from a clean environment, with nobody at the keyboard.
inside() {
  env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 \
    chroot "$root" bash -c "$1" </dev/null
}

copy_checkout() {
  mkdir -p "$root/src"
  tar -c --exclude=./build --exclude=./dist --exclude=./demo-out --exclude=./.git . | tar -x -C "$root/src"
}

# run STEP COMMAND: prints the end of what the command said, and how long it took.
run() {
  local step=$1 log=$work/$1.log start=$SECONDS
  inside "$2" >"$log" 2>&1 || {
    tail -n 60 "$log" >&2
    echo "prove: $step failed; the whole log is $log" >&2
    exit 1
  }
  echo "== $step in a bare root: $((SECONDS - start)) s; its last lines:"
  tail -n 25 "$log"
}

for step in "$@"; do
  case $step in
    demo | test)
      # Both start bare, so that each proves its own setup.
      fresh_root "$step"
      copy_checkout
      run "$step" "cd /src && ./dev $step"
      ;;
    packages)
      ls dist/*.deb >/dev/null || {
        echo "prove: no packages in ./dist; run ./dev package first" >&2
        exit 1
      }
      fresh_root packages
      cp dist/*.deb "$root/tmp/"
      # shellcheck disable=SC2016  # for the shell inside
      run packages 'set -e
        export DEBIAN_FRONTEND=noninteractive
        apt-get -q update >/dev/null
        apt-get -q -y -o Dpkg::Use-Pty=0 install --no-install-recommends $(ls /tmp/*.deb | grep -v dbgsym)
        zel --version
        zel testsrc --size 320x180 --rate 25 --seconds 1 -o - | zel hevc encode - -o /tmp/clip.hevc
        ldconfig -p | grep ZelDependencies
        apt-get -q -y -o Dpkg::Use-Pty=0 purge libzeldependencies-2012-0
        test -z "$(ls /usr/bin/zel /usr/lib/*/libZel* /usr/include/zel 2>/dev/null)"'
      ;;
    *)
      echo "prove: there is no step $step" >&2
      exit 2
      ;;
  esac
done
