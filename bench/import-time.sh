#!/bin/bash
# Times a whole import as the user waits for it: kavel-cli import of a recording of read
# speech (about 25 s, spoken by espeak-ng) against a real kavel-server on loopback, from
# the command's start to the transcribed project on disk. Prints each run, the median, the
# upload's size and how long the server spent recognising.
#
#   bench/import-time.sh [RUNS] [--no-build] [BIN]
#
# BIN is a folder holding kavel-cli, kavel-server and kavel-mlt-modules from another build,
# to compare two revisions on the same machine in the same hour.
#
# The figures depend on how idle the machine is: the load average is printed with them.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-5}
if [ "${2:-}" != --no-build ]; then
    cmake --build --preset default --target kavel-cli kavel-server kavel_mlt_modules >/dev/null
fi
bin=${3:-$PWD/build/bin}

work=$(mktemp -d "${TMPDIR:-/tmp}/kavel-import-bench-XXXXXX")
server_pid=""
cleanup() {
    [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null && wait "$server_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

text="Good morning and welcome to the third lesson. Today we will look at how plants turn \
sunlight into food. Every green leaf holds many small parts that catch the light. They take \
water from the ground and air from around them, and they make sugar that the plant can use \
to grow. At the end of the day we will walk outside and look at the trees in the park, so \
please bring a warm coat and a notebook."
espeak-ng -s 150 -w "$work/speech.wav" "$text"
ffmpeg -loglevel error -y -i "$work/speech.wav" -c:a aac -b:a 128k -ar 44100 -ac 2 \
    "$work/lesson.m4a"
duration=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$work/lesson.m4a")

export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" KAVEL_PROJECTS_DIR="$work/projects"
unset KAVEL_API_BASE_URL
mkdir -p "$HOME" "$KAVEL_PROJECTS_DIR"
"$bin/kavel-server" add-user --db "$work/kavel.db" --email bench@kavel.local \
    --password bench-secret >/dev/null
"$bin/kavel-server" serve --port 0 --db "$work/kavel.db" >"$work/server.log" 2>&1 &
server_pid=$!
for _ in $(seq 300); do
    grep -q 'speech recognizer ready' "$work/server.log" && break
    sleep 0.1
done
port=$(grep -oE 'listening on http://127\.0\.0\.1:[0-9]+' "$work/server.log" | grep -oE '[0-9]+$')
[ -n "$port" ] || { cat "$work/server.log" >&2; exit 1; }

echo "recording: $(printf '%.1f' "$duration") s of read speech, load average $(cut -d' ' -f1-3 /proc/loadavg)"
times=()
for run in $(seq "$runs"); do
    start=$(date +%s.%N)
    "$bin/kavel-cli" import --server "http://127.0.0.1:$port/api" --email bench@kavel.local \
        --password bench-secret "$work/lesson.m4a" >"$work/out.txt" 2>"$work/err.txt" \
        || { cat "$work/err.txt" >&2; exit 1; }
    end=$(date +%s.%N)
    seconds=$(echo "$end - $start" | bc)
    times+=("$seconds")
    printf 'run %d: %.2f s\n' "$run" "$seconds"
done
median=$(printf '%s\n' "${times[@]}" | sort -n | awk '{a[NR]=$1} END {print (NR%2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2}')
printf 'median: %.2f s over %d runs\n' "$median" "$runs"
upload=$(grep -oE 'queued: .*, [0-9]+ bytes' "$work/server.log" | tail -n 1 | grep -oE '[0-9]+ bytes$' || true)
echo "upload: $upload for $(stat -c %s "$work/lesson.m4a") bytes of source"
grep -oE "[0-9.]+ s of audio in [0-9.]+ s" "$work/server.log" | sed 's/^/recognition: /' | tail -n "$runs"
