#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
#
# Makes the clip of the example host: 10 s of a moving test picture with a running clock (H.264,
# 640x360, 25 frames/s, one key frame per second, no B-frames) and exactly 10 s of notes, a new note
# every second (raw A-law, 8 kHz, mono). Requires ffmpeg and fonts-dejavu-core.
#
# With one encoder thread and bit-exact flags, the same version of ffmpeg writes the same bytes.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

clock="drawtext=font=DejaVu Sans Mono:fontsize=44:fontcolor=white:box=1:boxcolor=black@0.7"
clock+=":boxborderw=12:x=(w-text_w)/2:y=h-text_h-40"
clock+=":text='%{eif\:t\:d\:2}.%{eif\:mod(n\,25)\:d\:2}'"

# Supplemental messages (unit type 6) hold only the encoder's settings; players do not need them.
ffmpeg -hide_banner -loglevel warning -nostdin -y \
    -f lavfi -i "testsrc2=size=640x360:rate=25:duration=10" -vf "$clock,format=yuv420p" \
    -c:v libx264 -profile:v main -preset veryslow -threads 1 -bf 0 -flags:v +bitexact \
    -b:v 850k -maxrate 1000k -bufsize 1000k \
    -x264-params keyint=25:min-keyint=25:scenecut=0:open-gop=0 \
    -bsf:v filter_units=remove_types=6 -f h264 clip.h264

# Whole tones upwards from 262 Hz. Each note fades out, so that every second differs and the loop has
# no click.
notes="0.6*exp(-3*mod(t,1))*sin(2*PI*t*262*pow(2,floor(t)*2/12))"
ffmpeg -hide_banner -loglevel warning -nostdin -y \
    -f lavfi -i "aevalsrc='$notes':sample_rate=8000:duration=10" \
    -c:a pcm_alaw -ac 1 -ar 8000 -f alaw clip.alaw
