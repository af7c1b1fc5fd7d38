#!/usr/bin/env bash
# Drives the Kavel window the way a user does, on a private X display: sign in, import a
# spoken recording, let the local service transcribe it, delete one word, cut and paste a
# word, split a paragraph with Enter, move a paragraph and undo the move, seek with the
# progress bar, play and pause with Space, search with Ctrl+F, stop an export (which must
# keep the subtitles it finished and nothing of the movie), export a movie, an audio file and subtitles and check them with
# ffprobe, and check that the full-screen preview fills the screen. Every screen and sheet
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

who=e2e
# shellcheck source=session.sh
source "$(dirname "${BASH_SOURCE[0]}")/session.sh"

shot 01-home

step="importing while signed out"
key ctrl+i
focus_window '^需要登录' "the login-required alert after Ctrl+I"
shot 02-login-required
key Return
wait_for 10 "the alert closing on Return (去登录)" has_no_window '^需要登录'

step="signing in"
focus_window '^登录' "the sign-in sheet after 去登录"
xdotool type --delay 20 "$account_email"
key Tab
xdotool type --delay 20 "$account_password"
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
# The file is written a moment before the editor takes the cover away.
cover_gone() {
    app_running
    grab "$work/now.png" "crop=${win_w}:${win_h}:${win_x}:${win_y}"
    ! cmp -s "$work/now.png" "$shots/07-processing.png"
}
wait_for 15 "the editor replacing the processing cover" cover_gone
sleep 0.5
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

# Start, end and text of each word in playback order; the ids of pasted words are new.
timed_words() { words_of "$1" | cut -f2-; }
paragraph_count() { jq '.paragraphs | length' "$1"; }
# Waits for Ctrl+S to have written the transcript that CHECK accepts (it reads $timeline).
saved_as() {
    local what=$1
    shift
    key ctrl+s
    wait_for 20 "the transcript being saved $what" "$@"
}

step="cutting and pasting a word"
# From the start of the first paragraph: select its first word, cut it, and paste it two
# words on. The word moves with its recording times.
timed_words "$timeline" >"$work/timed-before-cut.tsv"
click_at "${transcript_first_line[@]}"
for _ in $(seq "$first_paragraph"); do key Left; done
key shift+Right ctrl+x Right Right ctrl+v
moved_word() {
    app_running && timed_words "$timeline" >"$work/timed-after-paste.tsv" 2>/dev/null \
        && awk 'NR == FNR { w[NR] = $0; n = NR; next }
                { got[FNR] = $0 } END {
                    want[1] = w[2]; want[2] = w[3]; want[3] = w[1]
                    for (i = 4; i <= n; ++i) want[i] = w[i]
                    for (i = 1; i <= n; ++i) if (got[i] != want[i]) exit 1
                    exit FNR != n }' "$work/timed-before-cut.tsv" "$work/timed-after-paste.tsv"
}
saved_as "with the first word two words on, its times kept" moved_word
shot 09c-cut-paste

step="splitting a paragraph with Enter"
paragraphs_before=$(paragraph_count "$timeline")
click_at "${transcript_first_line[@]}"
for _ in $(seq "$first_paragraph"); do key Left; done
key Right Right Right Return
split_in_two() {
    app_running && [ "$(paragraph_count "$timeline")" -eq $((paragraphs_before + 1)) ] \
        && [ "$(jq '.paragraphs | sort_by(.sortOrder)[0].wordBlocks | length' "$timeline")" -eq 3 ] \
        && timed_words "$timeline" | cmp -s - "$work/timed-after-paste.tsv"
}
saved_as "with the first paragraph split after its third word, every word kept" split_in_two
shot 09d-paragraph-split

step="moving a paragraph and undoing the move"
# The second paragraph's header lies just under the first paragraph's single line; dragged
# above the first one, it changes places with it. One Ctrl+Z puts it back, Ctrl+Y moves
# it again.
first_text() { jq -r '.paragraphs | sort_by(.sortOrder)[0].wordBlocks[0].text' "$timeline"; }
first_before=$(first_text)
second_header=(700 180)
timeout 10 xdotool mousemove --sync $((win_x + second_header[0])) $((win_y + second_header[1])) \
    mousedown 1 || fail "the pointer did not reach the second paragraph"
for y in 170 150 130 115; do
    xdotool mousemove --sync $((win_x + second_header[0])) $((win_y + y))
    sleep 0.1
done
xdotool mouseup 1
first_changed() { app_running && [ "$(first_text)" != "$first_before" ]; }
first_back() { app_running && [ "$(first_text)" = "$first_before" ]; }
saved_as "with the paragraphs in their new order after the drag" first_changed
key ctrl+z
saved_as "in the old order after one Ctrl+Z" first_back
key ctrl+y
saved_as "in the new order again after Ctrl+Y" first_changed
key ctrl+z
saved_as "in the old order again" first_back
timed_words "$timeline" | cmp -s - "$work/timed-after-paste.tsv" \
    || fail "moving and undoing changed the words"
words_of "$timeline" >"$work/words-after.tsv"

# --- the player ------------------------------------------------------------------------

step="seeking with the progress bar"
grab_region "$work/controls.png" "${player_controls[@]}"
click_at $((progress_bar[0] + (progress_bar[1] - progress_bar[0]) / 4)) "${progress_bar[2]}"
wait_for 5 "the play head moving to a quarter of the bar" \
    region_differs "$work/controls.png" "${player_controls[@]}"
shot 09a-player-seeked

step="playing and pausing with Space"
key space
wait_for 5 "the preview playing after Space" region_moving "${player_controls[@]}"
key space
wait_for 5 "the preview pausing after Space again" region_still "${player_controls[@]}"

step="searching with Ctrl+F"
grab_region "$work/search.png" "${search_area[@]}"
key ctrl+f
xdotool type --delay 20 "fox"
wait_for 5 "the typed query showing in the search field" \
    region_differs "$work/search.png" "${search_area[@]}"
shot 09b-search
key ctrl+a BackSpace Escape

# --- export ------------------------------------------------------------------------------

step="stopping an export"
key ctrl+e
focus_window '^导出' "the export dialog after Ctrl+E"
# From the title field: the folder button, video with its three pickers, then audio, then
# subtitles (the audio format picker is skipped while audio is off). Return starts the
# subtitles and the movie; Escape stops the movie.
key Tab Tab Tab Tab Tab Tab Tab space
key Return
part_file() { app_running && compgen -G "$exports/.*.part.*" >/dev/null; }
wait_for 30 "the movie starting to render" part_file
key Escape
cancelled() { app_running && grep -q '^\[Export\] Cancelled' "$work/kavel.log"; }
wait_for 30 "the export ending as cancelled after Escape" cancelled
sleep 0.5
shot 10a-export-stopped-kept-subtitles
title=$(jq -r .title "$bundle/project.json")
video="$exports/$title.mp4" audio="$exports/$title.mp3" srt="$exports/$title.srt"
# The finished subtitles stay; nothing of the movie does.
[ "$(ls -A "$exports")" = "$title.srt" ] \
    || fail "the stopped export left $(ls -A "$exports" | tr '\n' ' ') instead of $title.srt alone"
rm "$srt"
key Escape
wait_for 10 "the export dialog closing on Escape" has_no_window '^导出'
focus "$main_window"

step="exporting"
key ctrl+e
focus_window '^导出' "the export dialog after Ctrl+E"
# The movie and subtitles are still chosen from the stopped run; audio is added.
key Tab Tab Tab Tab Tab Tab space
shot 10-export-dialog
key Return
# Subtitles, audio, then the movie, which is renamed into place when it is complete.
wait_for 120 "the export writing $video" test -f "$video"
shot 11-export-finished
for file in "$audio" "$srt"; do
    [ -s "$file" ] || fail "the export wrote no $file (found: $(ls "$exports" | tr '\n' ' '))"
done
key Escape
wait_for 10 "the export dialog closing on Escape" has_no_window '^导出'
focus "$main_window"
key ctrl+e
focus_window '^导出' "the export dialog opening again"
shot 11a-export-dialog-remembered
key Escape
wait_for 10 "the export dialog closing on Escape" has_no_window '^导出'
focus "$main_window"

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
# The edited result plays from the first word to the last with the pauses between words
# that were neighbours in the recording kept whole; the deleted word's gap is closed.
kept_span=$(awk -F'\t' -v skip="$deleted_id" '
    $1 == skip { previous_end = ""; next }
    { t += $3 - $2; if (previous_end != "" && $2 > previous_end) t += $2 - previous_end
      previous_end = $3 }
    END { printf "%.3f", t }' "$work/words-before.tsv")
near "$video_duration" "$kept_span" \
    || fail "the movie lasts ${video_duration}s, the kept words with their pauses ${kept_span}s (the words alone ${kept_words}s)"
awk -v v="$video_duration" -v s="$source_duration" -v w="$word_length" \
    'BEGIN { exit !(v <= s - w + 0.15) }' \
    || fail "the movie (${video_duration}s) is not shorter than the source (${source_duration}s) by \"$deleted_text\""
near "$audio_duration" "$video_duration" \
    || fail "the audio lasts ${audio_duration}s, the movie ${video_duration}s"
tr -d '\r' <"$srt" >"$work/subtitles.srt"
# Cues hold whole phrases: every kept word is in them once, the deleted one nowhere.
grep -vE '^[0-9]+$| --> |^$' "$work/subtitles.srt" | tr ' ' '\n' | grep -v '^$' >"$work/cue-words.txt" || true
cue_words=$(wc -l <"$work/cue-words.txt")
[ "$cue_words" -eq $((word_count - 1)) ] \
    || fail "the subtitles hold $cue_words words for $((word_count - 1)) kept words"
cues=$(grep -c -- ' --> ' "$work/subtitles.srt" || true)
[ "$cues" -lt "$cue_words" ] || fail "the subtitles have one cue per word ($cues), not phrases"
# A word spoken twice ("the") keeps its other occurrences.
kept_times=$(cut -f4 "$work/words-after.tsv" | grep -cxF -- "$deleted_text" || true)
srt_times=$(grep -cxF -- "$deleted_text" "$work/cue-words.txt" || true)
[ "$srt_times" -eq "$kept_times" ] \
    || fail "\"$deleted_text\" is in the subtitles $srt_times times, kept $kept_times times"

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
# The picture is rendered for the screen and fills it to its own proportions: edge to
# edge across a wide screen (or top to bottom on a tall one), not a small frame.
[ "$(ffprobe -v error -show_entries stream=width,height -of csv=s=x:p=0 \
    "$shots/12-player-fullscreen.png")" = "$screen_size" ] || fail "the full-screen shot is not ${screen_size}"
picture=$(ffmpeg -hide_banner -i "$shots/12-player-fullscreen.png" \
    -vf cropdetect=limit=0.1:round=2:skip=0 -f null - 2>&1 | grep -o 'crop=[0-9:]*' | tail -1)
IFS=: read -r picture_w picture_h _ <<<"${picture#crop=}"
awk -v w="$picture_w" -v h="$picture_h" -v s="$screen_size" \
    'BEGIN { split(s, d, "x"); exit !(w >= 0.97 * d[1] || h >= 0.97 * d[2]) }' \
    || fail "the full-screen picture is ${picture_w}x${picture_h} on a ${screen_size} screen"
echo "e2e: full-screen picture ${picture_w}x${picture_h}"
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

# --- an edit in one project while another imports -------------------------------------

step="importing a second, longer recording"
# Six times the first recording: long enough to be still recognised while the first
# project is edited.
long_source="$work/media/lesson.mp4"
ffmpeg -loglevel error -y -stream_loop 5 -i "$source" -c copy "$long_source"
focus "$main_window"
key ctrl+i
focus_window '^选择要编辑的视频文件' "the file dialog after Ctrl+I"
xdotool type --delay 10 "$long_source"
key Return
focus_window '^确认导入' "the import confirmation of the second recording"
key Return
wait_for 10 "the second import starting" has_no_window '^确认导入'
second_made() { app_running && [ "$(compgen -G "$projects/*.kavel/import.json" | wc -l)" -eq 1 ]; }
wait_for 30 "the second project being made, with its import running" second_made
second=$(dirname "$(compgen -G "$projects/*.kavel/import.json")")
focus "$main_window"
shot 17-import-cover
expect_new_screen 16-settings 17-import-cover "the new project opening under its import's cover"

step="leaving the importing project with 返回首页"
# The cover leaves the top bar free.
click_at "${back_button[@]}"
shot 18-home-import-progress
expect_new_screen 17-import-cover 18-home-import-progress "返回首页 above the import's cover"

step="editing the first project while the second imports"
key ctrl+o
focus_window '^选择 .kavel 项目文件' "the folder dialog after Ctrl+O"
xdotool type --delay 10 "$bundle"
key Return
wait_for 10 "the folder dialog taking the path" has_no_window '^选择 .kavel 项目文件'
focus "$main_window"
words_of "$timeline" >"$work/words-before-second.tsv"
first_count=$(wc -l <"$work/words-before-second.tsv")
click_at "${transcript_first_line[@]}"
first_paragraph=$(jq '.paragraphs | sort_by(.sortOrder)[0].wordBlocks | length' "$timeline")
for _ in $(seq "$first_paragraph"); do key Left; done
key shift+Right BackSpace ctrl+s
edited_while_importing() {
    app_running && [ "$(words_of "$timeline" | wc -l)" -eq $((first_count - 1)) ]
}
wait_for 20 "the edit being saved while the other project imports" edited_while_importing
[ -f "$second/import.json" ] || fail "the second import ended before the edit: use a longer recording"
shot 19-edit-while-importing
expect_new_screen 18-home-import-progress 19-edit-while-importing "opening the first project"

step="asking before quitting with an import running"
# What a window manager sends when the window's close button is pressed.
python3 - "$main_window" <<'PY'
import ctypes, sys
x = ctypes.cdll.LoadLibrary("libX11.so.6")
x.XOpenDisplay.restype = ctypes.c_void_p
x.XOpenDisplay.argtypes = [ctypes.c_char_p]
x.XFlush.argtypes = [ctypes.c_void_p]
x.XInternAtom.restype = ctypes.c_ulong
x.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
display = x.XOpenDisplay(None)
window = int(sys.argv[1])
class ClientMessage(ctypes.Structure):
    _fields_ = [("type", ctypes.c_int), ("serial", ctypes.c_ulong), ("send_event", ctypes.c_int),
                ("display", ctypes.c_void_p), ("window", ctypes.c_ulong),
                ("message_type", ctypes.c_ulong), ("format", ctypes.c_int),
                ("data", ctypes.c_long * 5)]
class Event(ctypes.Union):
    _fields_ = [("message", ClientMessage), ("pad", ctypes.c_long * 24)]
event = Event()
event.message.type = 33  # ClientMessage
event.message.window = window
event.message.message_type = x.XInternAtom(display, b"WM_PROTOCOLS", 0)
event.message.format = 32
event.message.data[0] = x.XInternAtom(display, b"WM_DELETE_WINDOW", 0)
x.XSendEvent.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_long,
                         ctypes.c_void_p]
x.XSendEvent(display, window, 0, 0, ctypes.byref(event))
x.XFlush(display)
PY
wait_for 10 "the question before quitting during an import" has_other_window
shot 20-quit-while-importing
key Escape
wait_for 10 "取消 keeping the window" has_no_other_window

step="waiting for the second transcript"
second_done() { app_running && [ ! -f "$second/import.json" ] && [ -n "$(words_of "$second/timeline.json" 2>/dev/null)" ]; }
wait_for 240 "the second transcript arriving in its own project" second_done
edited_while_importing || fail "the second import changed the first project"
echo "e2e: the second project was transcribed while the first was edited"

step="quitting"
app_ended() { ended "$app_pid"; }
kill "$app_pid"
wait_for 10 "kavel ending on SIGTERM" app_ended
wait "$app_pid" 2>/dev/null || true
app_pid=""
echo "e2e: passed; screenshots in $shots"
