#!/usr/bin/env bash
# package.sh OUT JOBS: makes the Debian packages in OUT with debhelper, out of a copy of the sources, and
# has lintian examine them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
out=$1 jobs=$2

# The version stands in one place, CMakeLists.txt.
version=$(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt)
stage=build/package
source=$stage/zeldependencies-2012-$version
rm -rf "$stage" "$out"
mkdir -p "$source" "$out"

tar -c --exclude=./build --exclude=./dist --exclude=./demo-out --exclude=./.git . | tar -x -C "$source"
mv "$source/packaging/debian" "$source/debian"
sed -e "s/@VERSION@/$version/" -e "s/@DATE@/$(date -R -u -d "@${SOURCE_DATE_EPOCH:-$(date +%s)}")/" \
  "$source/debian/changelog.in" >"$source/debian/changelog"

log=$stage/build.log
(cd "$source" && dpkg-buildpackage --build=binary --unsigned-source --unsigned-changes \
  --jobs="$jobs") >"$log" 2>&1 || {
  tail -n 100 "$log" >&2
  echo "package: the build failed; the whole log is $log" >&2
  exit 1
}
mv "$stage"/*.deb "$out"

# The one thing kept silent is a matter of Debian's own archive: a first upload closes a bug there.
lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$out"/*.deb
for package in "$out"/*.deb; do
  echo "$package"
done
