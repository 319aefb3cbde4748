#!/bin/sh
# Runs the example and asks ffprobe what came out of it.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$1" >"$folder/frame.hevc"
test -s "$folder/frame.hevc"
command -v ffprobe >/dev/null || { echo "skipped: ffprobe is not installed"; exit 77; }
found=$(ffprobe -v error -count_frames -show_entries stream=codec_name,width,height,nb_read_frames \
  -of csv=p=0 "$folder/frame.hevc")
test "$found" = "hevc,1280,720,1" || { echo "found: $found"; exit 1; }
