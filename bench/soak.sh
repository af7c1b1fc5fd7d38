#!/bin/sh
# Memory and responsiveness of the window over a long session (30 minutes unless told);
# see bench/soak.py. Needs Xvfb, xdotool and ffmpeg, which scripts/setup installs.
set -e
cd "$(dirname "$0")/.."
cmake --build --preset default --target kavel kavel-cli kavel_mlt_modules >/dev/null
exec python3 bench/soak.py build/bin "$@"
