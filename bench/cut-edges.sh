#!/bin/sh
# How loud the edited sound is right at its cuts, with word edges as recognised and with
# them moved into the quiet (the import's default). Speaks a minute of text with flite,
# transcribes it twice through a local kavel-server, deletes the same random words from
# both, exports WAV and measures the level of the 10 ms around every cut.
set -e
cd "$(dirname "$0")/.."
cmake --build --preset default --target kavel-cli kavel-server kavel_mlt_modules >/dev/null
exec python3 bench/cutedges.py build/bin "$@"
