#!/usr/bin/env bash
# demo.sh BUILD OUT: makes a test clip with the tool of BUILD, encodes and multiplexes it, and says what it did. The
# files stay in OUT.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=$1 out=$2

rm -rf "$out"
mkdir -p "$out"
PATH=$PWD/$build/tools/zel:$PATH

# show TITLE COMMAND...: the command as a person would type it in OUT, and its own summary below.
show() {
  printf '\n%s\n  $ %s\n' "$1" "${*:2}"
  (cd "$out" && "${@:2}") 2>&1 | sed 's/^/  /'
}

show "A test clip: six seconds of scenes with cuts, camera moves and grain, and a tone with clicks." \
  zel testsrc --pattern motion --size 640x360 --rate 25 --seconds 6 -o clip.y4m --audio clip.wav
show "Encoded to HEVC at constant quality, with the times of every access unit in a table." \
  zel hevc encode clip.y4m -o clip.hevc --preset fast --crf 24 --timing clip.csv
show "The same under a fixed bit rate and a decoder buffer of one second, as broadcast wants it." \
  zel hevc encode clip.y4m -o clip_cbr.hevc --preset fast --rate-control cbr --bitrate 800k --hrd
show "Video and sound in a transport stream: HEVC and SMPTE 302M, at a rate with room to spare." \
  zel mux clip_cbr.hevc clip.wav --rate 4M -o clip.ts
show "A second of the same scenes in HD, 4:2:2, as an editor takes them." \
  zel testsrc --pattern motion --size 1280x720 --rate 25 --chroma 422 --seconds 1 -o hd.y4m
show "As DNxHD at 220 Mbit/s: every frame takes 458752 bytes." \
  zel dnxhd encode hd.y4m --id 1251 -o hd.dnxhd
show "And decoded, to half the size." \
  zel dnxhd decode hd.dnxhd --resolution half -o hd_half.y4m

if command -v ffmpeg >/dev/null; then
  printf '\nWhat an independent decoder makes of the first one, compared with the clip:\n'
  # Pictures are compared by number: an elementary stream has no times.
  ffmpeg -hide_banner -nostdin -i "$out/clip.hevc" -i "$out/clip.y4m" \
    -lavfi '[0:v]settb=1/25,setpts=N[coded];[1:v]settb=1/25,setpts=N[clip];[coded][clip]psnr' \
    -f null - 2>&1 | sed -n 's/.*PSNR \(.*\)/  PSNR in dB: \1/p'
  printf '\nWhat an independent demultiplexer finds in the transport stream:\n'
  ffprobe -v error -show_entries stream=id,codec_name,duration -of csv=p=0 "$out/clip.ts" | grep 0x | sort -u |
    awk -F, '{ printf "  PID %s: %s, %s s\n", $2, $1, $3 }'
fi

# file NAME WHAT HOW-TO-LOOK
file() { printf '  %-14s %9s  %-42s %s\n' "$1" "$(du -h --apparent-size "$out/$1" | cut -f1)B" "$2" "$3"; }
printf '\nIn ./%s:\n' "$out"
file clip.y4m "the clip's pictures, uncompressed" "ffplay $out/clip.y4m"
file clip.wav "its sound" "ffplay $out/clip.wav"
file clip.hevc "encoded at constant quality" "ffplay -framerate 25 $out/clip.hevc"
file clip_cbr.hevc "encoded at 800 kbit/s" "ffplay -framerate 25 $out/clip_cbr.hevc"
file clip.ts "both, as a transport stream" "ffplay $out/clip.ts"
file hd.dnxhd "a second of HD as DNxHD" "ffplay -f dnxhd $out/hd.dnxhd"
file hd_half.y4m "the same, decoded to half the size" "ffplay $out/hd_half.y4m"
file clip.csv "each access unit: times, bytes, type" "column -s, -t $out/clip.csv | less"
