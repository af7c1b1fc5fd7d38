# Sourced by the scripts that drive the Kavel window on a private X display (the end-to-end
# test, the guide's demo recording). It makes a throw-away session: a home folder, a
# running kavel-server with one account, the app's preferences pointing at it, a spoken
# recording; then starts kavel and waits for its window. Cleanup runs on every exit.
#
# The caller sets before sourcing: who (a word for messages and folder names), bin (the
# folder with kavel and kavel-server), shots (a folder for screenshots, or empty) and
# optionally speech_text and interface_language (the window's language as LANGUAGE names
# it; Chinese unless told). Afterwards it has: work, home, projects, exports, source,
# source_duration, account_email, account_password, app_pid, main_window and the window's
# geometry (win_x, win_y, win_w, win_h), and the helpers below (wait_for, fail, focus,
# focus_window, click_at, key, grab, shot …).

screen_size=${screen_size:-1280x900}
work=$(mktemp -d "${TMPDIR:-/tmp}/kavel-$who-XXXXXX")
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
        echo "$who: FAILED while $step" >&2
        for log in "$work/kavel.log" "$work/server.log"; do
            [ -f "$log" ] && { echo "--- last lines of $(basename "$log")" >&2; tail -n 25 "$log" >&2; }
        done
        [ -n "$shots" ] && echo "$who: screenshots so far in $shots" >&2
    fi
    rm -rf "$work"
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
    echo "$who: $*" >&2
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
    "$exports"
chmod 700 "$work/runtime"
if [ -n "$shots" ]; then
    mkdir -p "$shots"
    rm -f "$shots"/[0-9][0-9]*-*.png
fi

step="starting kavel-server"
account_email="$who@kavel.local"
account_password="$who-secret-42"
"$bin/kavel-server" add-user --db "$work/kavel.db" --email "$account_email" \
    --password "$account_password" >/dev/null
# Port 0: the server picks a free one and names it in its first line.
"$bin/kavel-server" serve --port 0 --db "$work/kavel.db" >"$work/server.log" 2>&1 &
server_pid=$!
server_listening() {
    ! ended "$server_pid" || fail "kavel-server quit at start"
    grep -qE 'listening on http://127\.0\.0\.1:[0-9]+' "$work/server.log"
}
wait_for 30 "kavel-server start" server_listening
port=$(grep -oE 'listening on http://127\.0\.0\.1:[0-9]+' "$work/server.log" | grep -oE '[0-9]+$')

# The editor's preferences: where the service is, an export folder so that the export
# dialog needs no folder picker, and the language the recordings are spoken in (flite's
# English, which PocketSphinx recognises) as if the last import had used it.
cat >"$home/.config/Kavel/Kavel.conf" <<EOF
[General]
apiBaseURL=http://127.0.0.1:$port/api
defaultExportPath=$exports
lastRecognitionLanguage=${recognition_language:-en}
EOF

step="making the recording"
# A few sentences of speech over a test picture, about eight seconds unless the caller
# brings its own text.
flite -t "${speech_text:-The quick brown fox jumps over the lazy dog. We will meet again \
tomorrow morning. Thank you for watching.}" -o "$work/speech.wav"
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
        KAVEL_PROJECTS_DIR="$projects" QT_QPA_PLATFORM=xcb SDL_AUDIODRIVER=dummy LANG=C.UTF-8 \
        LANGUAGE="${interface_language:-zh_CN}"
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
# The progress bar's track runs from x 192 to 607 (window coordinates) at y 568.
progress_bar=(192 607 568)
# Regions (x y width height) whose pixels say what a key or click did.
player_controls=(180 556 440 52)
search_area=(960 55 240 32)
list_toggle=(1155 224)
menu_file=(22 11)
# 返回首页 at the left of the editor's top bar.
back_button=(230 42)

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
    echo "$who: $name.png"
}

# Grabs a region of the window (x y width height) to FILE.
grab_region() {
    local file=$1
    shift
    grab "$file" "crop=$3:$4:$((win_x + $1)):$((win_y + $2))"
}
# True when the region (x y width height) looks different from FILE.
region_differs() {
    local file=$1
    shift
    grab_region "$work/now.png" "$@"
    ! cmp -s "$work/now.png" "$file"
}
# True when the region changes within a short while (something is playing).
region_moving() {
    grab_region "$work/moving.png" "$@"
    sleep 0.4
    region_differs "$work/moving.png" "$@"
}
region_still() {
    grab_region "$work/still.png" "$@"
    sleep 0.4
    ! region_differs "$work/still.png" "$@"
}

# A click or key that should have changed the screen did, if the two shots differ.
expect_new_screen() {
    if cmp -s "$shots/$1.png" "$shots/$2.png"; then
        fail "$3: the window looks as it did in $1.png"
    fi
}

