#!/usr/bin/env bash
# Drives the Kavel window the way a user does, on a private X display: sign in, import a
# spoken recording, let the local service transcribe it, delete one word, export a movie,
# an audio file and subtitles, and check the results with ffprobe. Every screen and sheet
# it passes is saved as a PNG, so a run also refreshes the pictures of the documentation.
#
#   gui_e2e.sh BIN_DIR [SCREENSHOT_DIR]
#
# BIN_DIR holds kavel and kavel-server. The screenshots (01-home.png …) go to
# $KAVEL_SCREENSHOT_DIR, else SCREENSHOT_DIR, else ./e2e-screenshots. Without a display the
# script runs itself under xvfb-run. It needs xdotool, ffmpeg, flite and jq.
set -euo pipefail

screen_size=1280x900
if [ -z "${DISPLAY:-}" ]; then
    exec xvfb-run -a -s "-screen 0 ${screen_size}x24" "$0" "$@"
fi

bin=$(cd "${1:?usage: gui_e2e.sh BIN_DIR [SCREENSHOT_DIR]}" && pwd)
shots=${KAVEL_SCREENSHOT_DIR:-${2:-$PWD/e2e-screenshots}}
for tool in xdotool ffmpeg ffprobe flite jq; do
    command -v "$tool" >/dev/null || { echo "e2e: $tool is missing (scripts/setup installs it)" >&2; exit 1; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/kavel-e2e-XXXXXX")
app_pid=""
server_pid=""
step="setting up"

# True once PID has ended; a child that has ended but was not waited for yet counts too.
ended() {
    local state
    state=$(ps -o stat= -p "$1" 2>/dev/null || true)
    [ -z "$state" ] || [[ $state == Z* ]]
}

cleanup() {
    local status=$? pid
    trap - EXIT INT TERM
    for pid in $app_pid $server_pid; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in $app_pid $server_pid; do
        # Each gets a few seconds to go before it is killed for good.
        for _ in $(seq 50); do ended "$pid" && break; sleep 0.1; done
        kill -9 "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    if [ "$status" -ne 0 ]; then
        echo "e2e: FAILED while $step" >&2
        for log in "$work/kavel.log" "$work/server.log"; do
            [ -f "$log" ] && { echo "--- last lines of $(basename "$log")" >&2; tail -n 25 "$log" >&2; }
        done
        echo "e2e: screenshots so far in $shots" >&2
    fi
    rm -rf "$work"
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
    echo "e2e: $*" >&2
    exit 1
}

# Runs a command every 0.2 s until it succeeds; gives up after SECONDS.
wait_for() {
    local seconds=$1 what=$2
    shift 2
    local deadline=$((SECONDS + seconds))
    until "$@"; do
        [ "$SECONDS" -lt "$deadline" ] || fail "$what did not happen within ${seconds}s"
        sleep 0.2
    done
}

# --- the session: folders, service, account, preferences --------------------------------

home="$work/home"
projects="$work/projects"
exports="$work/exports"
mkdir -p "$home/.config/Kavel" "$home/.local/share" "$home/.cache" "$work/runtime" "$projects" \
    "$exports" "$shots"
chmod 700 "$work/runtime"
rm -f "$shots"/[0-9][0-9]-*.png

step="starting kavel-server"
"$bin/kavel-server" add-user --db "$work/kavel.db" --email e2e@kavel.local \
    --password 'e2e-secret-42' >/dev/null
# Port 0: the server picks a free one and names it in its first line.
"$bin/kavel-server" serve --port 0 --db "$work/kavel.db" >"$work/server.log" 2>&1 &
server_pid=$!
server_listening() {
    ! ended "$server_pid" || fail "kavel-server quit at start"
    grep -qE 'listening on http://127\.0\.0\.1:[0-9]+' "$work/server.log"
}
wait_for 30 "kavel-server start" server_listening
port=$(grep -oE 'listening on http://127\.0\.0\.1:[0-9]+' "$work/server.log" | grep -oE '[0-9]+$')

# The editor's preferences: where the service is, and an export folder so that the export
# dialog needs no folder picker.
cat >"$home/.config/Kavel/Kavel.conf" <<EOF
[General]
apiBaseURL=http://127.0.0.1:$port/api
defaultExportPath=$exports
EOF

step="making the recording"
# A few sentences of speech over a test picture, about eight seconds.
flite -t "The quick brown fox jumps over the lazy dog. We will meet again tomorrow morning. \
Thank you for watching." -o "$work/speech.wav"
source="$work/media/interview.mp4"
mkdir -p "$work/media"
ffmpeg -loglevel error -y -f lavfi -i "testsrc2=size=640x360:rate=25" -i "$work/speech.wav" \
    -shortest -c:v libx264 -pix_fmt yuv420p -c:a aac -b:a 128k "$source"
duration_of() { ffprobe -v error -show_entries format=duration -of csv=p=0 "$1"; }
source_duration=$(duration_of "$source")

# --- the window ------------------------------------------------------------------------

step="starting kavel"
(
    cd "$work"
    unset KAVEL_API_BASE_URL QT_QPA_PLATFORMTHEME QT_STYLE_OVERRIDE XDG_CURRENT_DESKTOP \
        DESKTOP_SESSION SESSION_MANAGER DBUS_SESSION_BUS_ADDRESS
    export HOME="$home" XDG_CONFIG_HOME="$home/.config" XDG_DATA_HOME="$home/.local/share" \
        XDG_CACHE_HOME="$home/.cache" XDG_RUNTIME_DIR="$work/runtime" \
        KAVEL_PROJECTS_DIR="$projects" QT_QPA_PLATFORM=xcb SDL_AUDIODRIVER=dummy LANG=C.UTF-8
    exec "$bin/kavel"
) >"$work/kavel.log" 2>&1 &
app_pid=$!

app_running() { ! ended "$app_pid" || fail "kavel quit unexpectedly"; }

# The visible window whose title matches PATTERN; a dialog's title ends in " — Kavel".
window_named() { xdotool search --onlyvisible --name "$1" 2>/dev/null | head -n 1 || true; }
has_window() { app_running && [ -n "$(window_named "$1")" ]; }
has_no_window() { app_running && [ -z "$(window_named "$1")" ]; }
# The program's visible windows besides the main one: dialogs, menus, the full screen.
other_windows() {
    xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null | grep -vx "$main_window" || true
}
has_other_window() { app_running && [ -n "$(other_windows)" ]; }
has_no_other_window() { app_running && [ -z "$(other_windows)" ]; }

# Gives a window the keyboard: there is no window manager to do that.
focus() {
    timeout 10 xdotool windowfocus --sync "$1" || fail "window $1 did not take the keyboard"
}

# Waits for the window titled PATTERN and gives it the keyboard.
focus_window() {
    wait_for 30 "$2" has_window "$1"
    focus "$(window_named "$1")"
}

wait_for 30 "the main window showing" has_window '^Kavel$'
main_window=$(window_named '^Kavel$')
focus "$main_window"
eval "$(xdotool getwindowgeometry --shell "$main_window")"
win_x=$X win_y=$Y win_w=$WIDTH win_h=$HEIGHT
[ "$win_w" = 1200 ] && [ "$win_h" = 800 ] || fail "the window is ${win_w}x${win_h}, not 1200x800"

# Points in window coordinates, for the few places without a key: the sidebar entries,
# the first line of the transcript, the preview picture and the home page's list toggle.
sidebar_home=(90 101)
sidebar_guide=(90 139)
sidebar_account=(90 177)
transcript_first_line=(660 134)
preview_picture=(400 320)
list_toggle=(1155 224)
menu_file=(22 11)

# Clicks (or double-clicks with "2") at a window point, then parks the pointer on the empty
# end of the menu bar so that no hover effect shows in the screenshots.
click_at() {
    timeout 10 xdotool mousemove --sync $((win_x + $1)) $((win_y + $2)) \
        click --repeat "${3:-1}" --delay 80 1 || fail "the pointer did not reach $1,$2"
    timeout 10 xdotool mousemove --sync $((win_x + win_w - 5)) $((win_y + 5)) || true
}
key() { xdotool key --clearmodifiers "$@"; }

grab() {
    ffmpeg -loglevel error -y -f x11grab -draw_mouse 0 -video_size "$screen_size" -i "$DISPLAY" \
        -frames:v 1 ${2:+-vf "$2"} "$1"
}

# Saves the window (or, with "full", the whole screen) as NAME.png once it has stopped
# changing: two grabs in a row alike, or after three seconds of a playing clip.
shot() {
    local name=$1 crop="crop=${win_w}:${win_h}:${win_x}:${win_y}"
    [ "${2:-}" = full ] && crop=""
    local file="$shots/$name.png" previous="$work/previous.png" deadline=$((SECONDS + 3))
    grab "$previous" "$crop"
    while :; do
        sleep 0.15
        grab "$file" "$crop"
        cmp -s "$file" "$previous" && break
        [ "$SECONDS" -lt "$deadline" ] || break
        cp "$file" "$previous"
    done
    echo "e2e: $name.png"
}

# A click or key that should have changed the screen did, if the two shots differ.
expect_new_screen() {
    if cmp -s "$shots/$1.png" "$shots/$2.png"; then
        fail "$3: the window looks as it did in $1.png"
    fi
}

shot 01-home

step="importing while signed out"
key ctrl+i
focus_window '^需要登录' "the login-required alert after Ctrl+I"
shot 02-login-required
key Return
wait_for 10 "the alert closing on Return (去登录)" has_no_window '^需要登录'

step="signing in"
focus_window '^登录' "the sign-in sheet after 去登录"
xdotool type --delay 20 "e2e@kavel.local"
key Tab
xdotool type --delay 20 "e2e-secret-42"
shot 03-sign-in
key Return
signed_in() { app_running && grep -q 'access_token=' "$home/.config/Kavel/Kavel.conf"; }
wait_for 30 "the sign-in storing a session" signed_in
wait_for 10 "the sign-in sheet closing" has_no_window '^登录'
focus "$main_window"

step="showing the account page"
click_at "${sidebar_account[@]}"
shot 04-account
expect_new_screen 01-home 04-account "clicking 我的"

step="choosing the recording"
key ctrl+i
focus_window '^选择要编辑的视频文件' "the file dialog after Ctrl+I"
xdotool type --delay 10 "$source"
shot 05-file-dialog
key Return
wait_for 10 "the file dialog taking the path" has_no_window '^选择要编辑的视频文件'

step="confirming the import"
focus_window '^确认导入' "the import confirmation after choosing the file"
shot 06-import-confirm
key Return
wait_for 10 "the import starting on Return (开始导入)" has_no_window '^确认导入'

step="transcribing"
bundle_made() { app_running && compgen -G "$projects/*.kavel/project.json" >/dev/null; }
wait_for 30 "the project bundle being created" bundle_made
bundle=$(compgen -G "$projects/*.kavel")
[ "$(wc -l <<<"$bundle")" -eq 1 ] || fail "more than one project: $bundle"
timeline="$bundle/timeline.json"
focus "$main_window"
shot 07-processing

# Words in playback order, one per line: id, start, end, text.
words_of() {
    jq -r '[.paragraphs | sort_by(.sortOrder)[] | .wordBlocks[]][]
           | [.id, .mediaStart, .mediaEnd, .text] | @tsv' "$1"
}
has_words() { app_running && [ -f "$timeline" ] && [ -n "$(words_of "$timeline" 2>/dev/null)" ]; }
wait_for 180 "the transcript arriving in $timeline" has_words
words_of "$timeline" >"$work/words-before.tsv"
word_count=$(wc -l <"$work/words-before.tsv")
first_paragraph=$(jq '.paragraphs | sort_by(.sortOrder)[0].wordBlocks | length' "$timeline")
echo "e2e: recognised $word_count words: $(cut -f4 "$work/words-before.tsv" | tr '\n' ' ')"
[ "$first_paragraph" -ge 3 ] || fail "the first paragraph has only $first_paragraph words"
shot 08-editor
expect_new_screen 07-processing 08-editor "the transcript replacing the processing cover"

# --- editing -----------------------------------------------------------------------------

step="deleting the second word"
# A click on the first line puts the cursor into the first paragraph; Left as often as it
# has words takes it to the start, whichever word was hit.
click_at "${transcript_first_line[@]}"
for _ in $(seq "$first_paragraph"); do key Left; done
key Right shift+Right BackSpace ctrl+s
deleted=$(sed -n 2p "$work/words-before.tsv")
deleted_id=$(cut -f1 <<<"$deleted")
deleted_text=$(cut -f4 <<<"$deleted")
one_word_fewer() {
    app_running && words_of "$timeline" >"$work/words-after.tsv" 2>/dev/null \
        && [ "$(wc -l <"$work/words-after.tsv")" -eq $((word_count - 1)) ]
}
wait_for 20 "the edit being saved (Ctrl+S) with one word fewer" one_word_fewer
grep -v "^$deleted_id" "$work/words-before.tsv" | cmp -s - "$work/words-after.tsv" \
    || fail "the saved transcript lost another word than the second, \"$deleted_text\""
echo "e2e: deleted \"$deleted_text\""
shot 09-editor-after-delete
expect_new_screen 08-editor 09-editor-after-delete "deleting a word"

# --- export ------------------------------------------------------------------------------

step="exporting"
key ctrl+e
focus_window '^导出' "the export dialog after Ctrl+E"
# From the title field: the folder button, video with its three pickers, then audio; its
# format picker, then subtitles.
key Tab Tab Tab Tab Tab Tab space Tab Tab space
shot 10-export-dialog
key Return
title=$(jq -r .title "$bundle/project.json")
video="$exports/$title.mp4" audio="$exports/$title.mp3" srt="$exports/$title.srt"
# Subtitles, audio, then the movie, which is renamed into place when it is complete.
wait_for 120 "the export writing $video" test -f "$video"
shot 11-export-finished
for file in "$audio" "$srt"; do
    [ -s "$file" ] || fail "the export wrote no $file (found: $(ls "$exports" | tr '\n' ' '))"
done

step="checking the exported files"
seconds_of() { awk -F'\t' -v skip="${2:-}" '$1 != skip { t += $3 - $2 } END { printf "%.3f", t }' "$1"; }
all_words=$(seconds_of "$work/words-before.tsv")
kept_words=$(seconds_of "$work/words-before.tsv" "$deleted_id")
word_length=$(awk -F'\t' '{ printf "%.3f", $3 - $2 }' <<<"$deleted")
[ -n "$(ffprobe -v error -select_streams v -show_entries stream=codec_type -of csv=p=0 "$video")" ] \
    || fail "$video has no video stream"
video_duration=$(duration_of "$video")
audio_duration=$(duration_of "$audio")
echo "e2e: source ${source_duration}s, its words ${all_words}s, \"$deleted_text\" ${word_length}s;" \
    "movie ${video_duration}s, audio ${audio_duration}s"
near() { awk -v a="$1" -v b="$2" 'BEGIN { d = a - b; exit !(d <= 0.15 && -d <= 0.15) }'; }
# The edited result lays the kept words end to end, closing the pauses between them: it
# lasts the words' time less the deleted word's.
near "$video_duration" "$kept_words" \
    || fail "the movie lasts ${video_duration}s, the kept words ${kept_words}s"
awk -v v="$video_duration" -v s="$source_duration" -v w="$word_length" \
    'BEGIN { exit !(v <= s - w + 0.15) }' \
    || fail "the movie (${video_duration}s) is not shorter than the source (${source_duration}s) by \"$deleted_text\""
near "$audio_duration" "$video_duration" \
    || fail "the audio lasts ${audio_duration}s, the movie ${video_duration}s"
tr -d '\r' <"$srt" >"$work/subtitles.srt"
cues=$(grep -c -- ' --> ' "$work/subtitles.srt" || true)
[ "$cues" -eq $((word_count - 1)) ] || fail "the subtitles have $cues cues for $((word_count - 1)) words"
# A word spoken twice ("the") keeps its other occurrences.
kept_times=$(cut -f4 "$work/words-after.tsv" | grep -cxF -- "$deleted_text" || true)
srt_times=$(grep -cxF -- "$deleted_text" "$work/subtitles.srt" || true)
[ "$srt_times" -eq "$kept_times" ] \
    || fail "\"$deleted_text\" is in the subtitles $srt_times times, kept $kept_times times"

key Escape
wait_for 10 "the export dialog closing on Escape" has_no_window '^导出'
focus "$main_window"

# --- the other screens -------------------------------------------------------------------

step="showing the preview full screen"
# The full-screen window has no title of its own: it is the program's other window that
# covers the screen.
fullscreen_window() {
    local id
    for id in $(other_windows); do
        eval "$(xdotool getwindowgeometry --shell "$id")"
        [ "${WIDTH}x${HEIGHT}" = "$screen_size" ] && { echo "$id"; return; }
    done
}
has_fullscreen() { app_running && [ -n "$(fullscreen_window)" ]; }
has_no_fullscreen() { app_running && [ -z "$(fullscreen_window)" ]; }
click_at "${preview_picture[@]}" 2
wait_for 10 "the preview going full screen on a double click" has_fullscreen
focus "$(fullscreen_window)"
shot 12-player-fullscreen full
key Escape
wait_for 10 "full screen ending on Escape" has_no_fullscreen
focus "$main_window"

step="showing the projects"
click_at "${sidebar_home[@]}"
shot 13-home-grid
expect_new_screen 01-home 13-home-grid "the new project on the home page"
click_at "${list_toggle[@]}"
shot 14-home-list
expect_new_screen 13-home-grid 14-home-list "switching the projects to a list"

step="showing the guide"
click_at "${sidebar_guide[@]}"
shot 15-guide
expect_new_screen 14-home-list 15-guide "clicking 指南"

step="showing the preferences"
# The menu bar opens with a click; the keys go on from 文件 to 设置 and its 偏好设置….
click_at "${menu_file[@]}"
wait_for 10 "the File menu opening on a click" has_other_window
key Right Right Return
wait_for 10 "the Settings menu closing on Return" has_no_other_window
shot 16-settings
expect_new_screen 15-guide 16-settings "choosing 设置 → 偏好设置…"

step="quitting"
app_ended() { ended "$app_pid"; }
kill "$app_pid"
wait_for 10 "kavel ending on SIGTERM" app_ended
wait "$app_pid" 2>/dev/null || true
app_pid=""
echo "e2e: passed; screenshots in $shots"
