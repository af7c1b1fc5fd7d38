#!/usr/bin/env bash
# Checks the Debian packages in a folder as an administrator meets them:
#   check-packages.sh contents DIR VERSION   files, control fields, and the programs run
#                                            from the unpacked packages
#   check-packages.sh lintian DIR            lintian finds no error and no warning
#   check-packages.sh unit DIR               systemd-analyze accepts the service's unit
set -euo pipefail
mode=$1 dir=$2
work=$(mktemp -d)
server_pid=""
cleanup() {
    [ -z "$server_pid" ] || kill "$server_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

deb() {
    local found=("$dir/$1"_*.deb)
    [ -f "${found[0]}" ] || fail "no package $1 in $dir"
    echo "${found[0]}"
}
unpack() {
    for package in kavel kavel-cli kavel-server; do
        dpkg-deb -x "$(deb $package)" "$work/root"
        dpkg-deb -c "$(deb $package)" | awk '{print $6}' | sed 's#^\./##' > "$work/$package.list"
    done
}

case $mode in
contents)
    version=$3
    unpack
    # What each package must hold for its programs to work and to be found.
    declare -A needed=(
        [kavel]="usr/bin/kavel usr/share/applications/kavel.desktop
            usr/share/icons/hicolor/scalable/apps/kavel.svg
            usr/share/icons/hicolor/16x16/apps/kavel.png usr/share/icons/hicolor/48x48/apps/kavel.png
            usr/share/icons/hicolor/256x256/apps/kavel.png
            usr/share/metainfo/org.kavel.Kavel.metainfo.xml usr/share/man/man1/kavel.1.gz
            usr/lib/kavel/mlt-modules/libmltcore.so usr/lib/kavel/mlt-modules/libmltavformat.so"
        [kavel-cli]="usr/bin/kavel-cli usr/share/man/man1/kavel-cli.1.gz
            usr/lib/kavel-cli/mlt-modules/libmltcore.so usr/lib/kavel-cli/mlt-modules/libmltavformat.so
            usr/share/bash-completion/completions/kavel-cli"
        [kavel-server]="usr/bin/kavel-server usr/share/man/man1/kavel-server.1.gz
            usr/share/bash-completion/completions/kavel-server
            usr/lib/systemd/system/kavel-server.service etc/kavel-server.conf
            usr/share/doc/kavel-server/server.md usr/bin/kavel-whisper-bridge
            usr/share/man/man1/kavel-whisper-bridge.1.gz"
    )
    for package in kavel kavel-cli kavel-server; do
        for file in ${needed[$package]} usr/share/doc/$package/copyright \
            usr/share/doc/$package/changelog.gz; do
            grep -qx "$file" "$work/$package.list" || fail "$package lacks $file"
        done
        # Nothing outside /usr but the service's settings.
        if grep -vE '^(usr/|etc/kavel-server\.conf$|etc/$|$)' "$work/$package.list"; then
            fail "$package installs the files above outside /usr"
        fi
        control=$(dpkg-deb -f "$(deb $package)")
        grep -qx "Version: $version" <<<"$control" || fail "$package is not version $version"
        grep -q "^Depends:.*libc6" <<<"$control" || fail "$package names no libraries it needs"
    done
    dpkg-deb -f "$(deb kavel)" Depends | grep -q libqt6widgets6 || fail "kavel does not depend on Qt Widgets"
    dpkg-deb -f "$(deb kavel)" Recommends | grep -q ffmpeg || fail "kavel does not recommend ffmpeg"
    # Each program's module folder links into the system's MLT modules, wherever they
    # are installed.
    for link in "$work/root"/usr/lib/kavel{,-cli}/mlt-modules/*; do
        target=$(readlink "$link")
        [[ $target == ../* ]] || fail "$link is not a relative link: $target"
        [ -e "$(realpath -m "$(dirname "${link#"$work/root"}")/$target")" ] ||
            fail "$link leads nowhere: $target"
    done
    dpkg-deb -I "$(deb kavel-server)" conffiles | grep -qx /etc/kavel-server.conf ||
        fail "/etc/kavel-server.conf is not a conffile"
    dpkg-deb -I "$(deb kavel-server)" postinst | grep -q 'adduser --system' ||
        fail "kavel-server does not make its system user"
    if dpkg-deb -I "$(deb kavel-server)" postinst | grep -qE 'systemctl .*(enable|start)'; then
        fail "installing kavel-server must not enable or start the service"
    fi

    root=$work/root
    export QT_QPA_PLATFORM=offscreen HOME=$work/home PATH="$root/usr/bin:$PATH"
    mkdir -p "$HOME"
    kavel-cli --help | grep -q '^Usage: kavel-cli' || fail "kavel-cli --help"
    kavel-server --help | grep -q 'kavel-server serve' || fail "kavel-server --help"
    for page in kavel kavel-cli kavel-server kavel-whisper-bridge; do
        man -l "$root/usr/share/man/man1/$page.1.gz" 2>/dev/null | grep -q "^NAME" ||
            fail "man $page shows no manual"
    done
    man -l "$root/usr/share/man/man1/kavel-server.1.gz" 2>/dev/null | grep -q -- '--metrics-bind' ||
        fail "man kavel-server lacks serve's options"
    # The media engine starts from the packaged module folder: the system's MLT modules
    # are where its links lead in the unpacked root too.
    mlt=$(realpath -m "/usr/lib/kavel-cli/mlt-modules/$(readlink "$root/usr/lib/kavel-cli/mlt-modules/libmltcore.so")/..")
    mkdir -p "$(dirname "$root$mlt")"
    ln -s "$mlt" "$root$mlt"
    sox -n -r 16000 -c 1 "$work/tone.wav" synth 1 sine 440
    export KAVEL_PROJECTS_DIR=$work/projects
    bundle=$(kavel-cli new 试听) || fail "kavel-cli new"
    kavel-cli add-media "$bundle" "$work/tone.wav" || fail "kavel-cli add-media: the media engine did not start"
    desktop-file-validate "$root/usr/share/applications/kavel.desktop"
    appstreamcli validate --no-net --strict "$root/usr/share/metainfo/org.kavel.Kavel.metainfo.xml" >/dev/null ||
        fail "appstreamcli validate"

    # Completion of both programs' commands and options, as bash-completion loads it.
    completed=$(bash -c '
        source /usr/share/bash-completion/bash_completion
        source "$1/kavel-server"; source "$1/kavel-cli"
        offer() { COMP_WORDS=("${@:2}"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
                  COMP_LINE="${*:2}"; COMP_POINT=${#COMP_LINE}
                  COMPREPLY=(); "$1"; echo "${COMPREPLY[*]}"; }
        offer _kavel_server kavel-server ""
        offer _kavel_server kavel-server serve --c
        offer _kavel_cli kavel-cli ex
        offer _kavel_cli kavel-cli export b --audio ""' _ "$root/usr/share/bash-completion/completions")
    [ "$completed" = $'serve worker add-user --help\n--config\nexport\nwav aac mp3' ] ||
        fail "bash completion offered: $completed"

    # The service from its own settings file, pointed at a private folder.
    sed -e "s#/var/lib/kavel-server#$work/state#" -e 's/^port = .*/port = 0/' \
        "$root/etc/kavel-server.conf" > "$work/kavel-server.conf"
    mkdir -p "$work/state"
    grep -q "^database = $work/state/kavel.db" "$work/kavel-server.conf" || fail "no database setting"
    kavel-server add-user --config "$work/kavel-server.conf" --email a@example.com \
        --password pw >/dev/null || fail "add-user with the service's settings"
    kavel-server serve --config "$work/kavel-server.conf" --workers 0 > "$work/log" 2>&1 &
    server_pid=$!
    port=""
    for _ in $(seq 100); do
        port=$(sed -n 's#.*listening on http://127\.0\.0\.1:\([0-9]*\).*#\1#p' "$work/log")
        [ -n "$port" ] && break
        kill -0 "$server_pid" 2>/dev/null || fail "kavel-server serve stopped: $(cat "$work/log")"
        sleep 0.1
    done
    [ -n "$port" ] || fail "kavel-server serve did not listen: $(cat "$work/log")"
    [ "$(curl -s "http://127.0.0.1:$port/healthz")" = ok ] || fail "/healthz"
    curl -s "http://127.0.0.1:$port/metrics" | grep -q '^kavel_database_up 1$' || fail "/metrics"
    [ -f "$work/state/uploads" ] || [ -d "$work/state/uploads" ] || fail "no uploads folder beside the database"
    echo "packages hold every file, and their programs run from $root"
    ;;
lintian)
    command -v lintian >/dev/null || { echo "SKIP: lintian is not installed"; exit 0; }
    # Warnings count as failures: each one is fixed or overridden with its reason.
    lintian --fail-on error,warning --display-info "$(deb kavel)" "$(deb kavel-cli)" "$(deb kavel-server)"
    ;;
unit)
    command -v systemd-analyze >/dev/null ||
        { echo "SKIP: systemd-analyze is not installed, the unit is not verified"; exit 0; }
    unpack
    # The unit among the machine's own (the targets it names), in the unpacked root
    # where its program is; its manual is checked with the contents.
    cp -rn /usr/lib/systemd/system/. "$work/root/usr/lib/systemd/system/"
    status=0
    out=$(systemd-analyze verify --man=no --root="$work/root" \
        /usr/lib/systemd/system/kavel-server.service 2>&1) || status=$?
    echo "$out"
    # A setting it ignores is only a message, and no failure of the command.
    if [ "$status" -ne 0 ] || grep -q 'kavel-server' <<<"$out"; then
        fail "systemd-analyze verify objects to the unit"
    fi
    echo "systemd-analyze verify accepts kavel-server.service"
    ;;
*)
    fail "unknown mode $mode"
    ;;
esac
