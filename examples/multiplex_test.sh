#!/bin/sh
# Makes two streams, runs the example on them, and asks ffprobe what came out of it.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
command -v ffmpeg >/dev/null || { echo "skipped: ffmpeg is not installed"; exit 77; }
ffmpeg -v error -f lavfi -i testsrc2=size=320x240:rate=25 -t 2 -c:v mpeg2video -b:v 1M -maxrate 1M \
  -bufsize 500k -f mpeg2video "$folder/clip.m2v"
ffmpeg -v error -f lavfi -i sine=sample_rate=48000 -t 2 -c:a mp2 "$folder/clip.mp2"
"$1" "$folder/clip.m2v" "$folder/clip.mp2" >"$folder/clip.ts"
found=$(ffprobe -v error -count_packets -show_entries stream=codec_name,nb_read_packets -of csv=p=0 \
  "$folder/clip.ts" | sort | tr '\n' ' ')
case $found in
  *mp2,8[0-9]*mpeg2video,50*) ;;
  *) echo "found: $found"; exit 1 ;;
esac
if "$1" "$folder/missing" "$folder/clip.mp2" >/dev/null 2>"$folder/why"; then exit 1; fi
grep -q 'Video never acquired' "$folder/why"
