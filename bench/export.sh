#!/bin/sh
# Times Kavel's video and WAV exports against ffmpeg on the same cut list and media.
# Arguments are passed on (see bench_export --help); --keep DIR reuses generated sources.
set -e
cd "$(dirname "$0")/.."
cmake --build --preset default --target bench_export kavel_mlt_modules >/dev/null
exec build/bin/bench_export "$@"
