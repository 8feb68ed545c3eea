#!/usr/bin/env bash
# Makes every sample stream of this folder anew, from FFmpeg's built-in test sources and a computed drive.
#
#     samples/make_samples.sh [FOLDER]        FOLDER: where to write, default: the folder of this script
#
# The encoders run in one thread, without processor-specific code and in bit-exact mode, so that the same FFmpeg makes
# the same bytes on any machine. Needs ffmpeg with libx264 and libx265 (see scripts/setup).
set -euo pipefail
export LC_ALL=C

out=${1:-$(cd "$(dirname "$0")" && pwd)}
mkdir -p "$out"

readonly kSeconds=6       # length of the "drive" streams
readonly kEpbSeconds=1    # length of the small streams
readonly kMaxTotal=$((1024 * 1024))

run_ffmpeg() {
  ffmpeg -hide_banner -nostdin -loglevel error -y -cpuflags 0 -fflags +bitexact "$@"
}

# picture SIZE SECONDS: a moving test picture at 30 frames a second
picture() {
  echo "testsrc2=size=$1:rate=30:duration=$2,format=yuv420p"
}

# h264 FILE SIZE SECONDS PROFILE KBIT EXTRA: no B frames, closed GOPs of 30 frames
h264() {
  run_ffmpeg -f lavfi -i "$(picture "$2" "$3")" -an -c:v libx264 -profile:v "$4" -preset medium -b:v "$5k" \
    -threads 1 -flags:v +bitexact+cgop \
    -x264-params "threads=1:asm=0:bframes=0:keyint=30:min-keyint=30:scenecut=0:open-gop=0:$6" \
    -f h264 "$out/$1"
}

# hevc FILE SIZE SECONDS KBIT: no B frames, closed GOPs of 30 frames, parameter sets at every key frame
hevc() {
  run_ffmpeg -f lavfi -i "$(picture "$2" "$3")" -an -c:v libx265 -preset medium -b:v "$4k" -threads 1 \
    -flags:v +bitexact \
    -x265-params "pools=none:frame-threads=1:asm=0:log-level=none:info=0:bframes=0:keyint=30:min-keyint=30:scenecut=0:open-gop=0:repeat-headers=1" \
    -f hevc "$out/$1"
}

# The stream filter removes the encoder's comment (an SEI), which would only repeat the options above.
h264_plain() {
  h264 "$1" "$2" "$3" "$4" "$5" "slices=1:aud=0"
  run_ffmpeg -f h264 -i "$out/$1" -c copy -bsf:v filter_units=remove_types=6 -f h264 "$out/$1.part"
  mv "$out/$1.part" "$out/$1"
}

aac() {
  run_ffmpeg -f lavfi -i "sine=frequency=440:beep_factor=4:sample_rate=48000:duration=$2" \
    -f lavfi -i "sine=frequency=660:sample_rate=48000:duration=$2" -filter_complex "[0:a][1:a]amerge=inputs=2[stereo]" \
    -map "[stereo]" -c:a aac -profile:a aac_low -b:a 64k -threads 1 -flags:a +bitexact -f adts "$out/$1"
}

# drive: two fixes a second of a car that gathers speed in a long right-hand bend. One line per fix:
# time latitude longitude elevation[m] speed[m/s] course[degrees]
drive() {
  awk -v seconds="$1" 'BEGIN {
    pi = atan2(0, -1); metres = 111320                # metres in one degree of latitude
    lat = 48.2030500; lon = 16.3610200; speed = 8.0; course = 40.0; ele = 172.0
    for (i = 0; i <= 2 * seconds; ++i) {
      printf "2024-06-01T08:30:%02d.%d00Z %.7f %.7f %.1f %.2f %.1f\n", int(i / 2), (i % 2) * 5, lat, lon, ele, speed, course
      lat += 0.5 * speed * cos(course * pi / 180) / metres
      lon += 0.5 * speed * sin(course * pi / 180) / (metres * cos(lat * pi / 180))
      speed += 0.45; course += 2.4; ele += 0.1
    }
  }'
}

gpx() {
  drive "$2" | awk '
    BEGIN {
      print "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
      print "<gpx version=\"1.1\" creator=\"make_samples.sh\" xmlns=\"http://www.topografix.com/GPX/1/1\""
      print "     xmlns:gpxtpx=\"http://www.garmin.com/xmlschemas/TrackPointExtension/v2\">"
      print "  <metadata><name>drive</name><time>2024-06-01T08:30:00Z</time></metadata>"
      print "  <trk>\n    <name>drive</name>\n    <trkseg>"
    }
    {
      printf "      <trkpt lat=\"%s\" lon=\"%s\">\n        <ele>%s</ele>\n        <time>%s</time>\n", $2, $3, $4, $1
      printf "        <extensions><gpxtpx:TrackPointExtension><gpxtpx:speed>%s</gpxtpx:speed>", $5
      printf "<gpxtpx:course>%s</gpxtpx:course></gpxtpx:TrackPointExtension></extensions>\n      </trkpt>\n", $6
    }
    END { print "    </trkseg>\n  </trk>\n</gpx>" }' > "$out/$1"
}

csv() {
  {
    echo "time,lat,lon,ele,speed,course"
    drive "$2" | tr ' ' ','
  } > "$out/$1"
}

# nal_units FILE: one line per NAL unit, its bytes in hexadecimal with a blank before each
nal_units() {
  od -An -v -tx1 "$1" | tr -d '\n' | sed 's/ 00 00 01/\n/g' | sed 1d
}

# require_escapes FILE FIRST_BYTE...: every named kind of parameter set holds the escape sequence 00 00 03
require_escapes() {
  local file=$1 first
  shift
  for first in "$@"; do
    if ! nal_units "$out/$file" | grep "^ $first.* 00 00 03" > /dev/null; then
      echo "make_samples.sh: $file: no 00 00 03 inside the parameter set that starts with $first" >&2
      exit 1
    fi
  done
}

h264_plain drive_h264.h264 640x360 $kSeconds high 380
hevc drive_hevc.hevc 640x360 $kSeconds 300
aac drive_aac.aac $kSeconds
gpx drive_gps.gpx $kSeconds
csv drive_gps.csv $kSeconds
h264_plain epb_h264.h264 176x144 $kEpbSeconds baseline 100
hevc epb_hevc.hevc 176x144 $kEpbSeconds 100
h264 units_h264.h264 176x144 $kEpbSeconds main 100 "slices=2:aud=1"

require_escapes drive_h264.h264 67          # SPS
require_escapes drive_hevc.hevc "40 01" "42 01"  # VPS, SPS
require_escapes epb_h264.h264 67
require_escapes epb_hevc.hevc "40 01" "42 01"

cd "$out"
streams=(drive_h264.h264 drive_hevc.hevc drive_aac.aac drive_gps.gpx drive_gps.csv epb_h264.h264 epb_hevc.hevc
  units_h264.h264)
wc -c "${streams[@]}"
total=$(cat "${streams[@]}" | wc -c)
if ((total >= kMaxTotal)); then
  echo "make_samples.sh: $total bytes are too many, at most $kMaxTotal are wanted" >&2
  exit 1
fi
