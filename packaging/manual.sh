#!/bin/sh
# Writes the gzipped manual page of a command-line program from its own --help:
# manual.sh PROGRAM VERSION SUMMARY OUT. For kavel-cli, each command's --help becomes a
# section of its own.
set -eu
program=$1 version=$2 summary=$3 out=$4
name=$(basename "$program")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Called by name, so that the page shows "kavel-cli", not the build folder.
PATH="$(dirname "$program"):$PATH"
export PATH QT_QPA_PLATFORM=offscreen HOME="$work"
: > "$work/include"
if [ "$name" = kavel-cli ]; then
    {
        echo '[COMMANDS]'
        for command in $("$name" --help | sed -n 's/^  \([a-z][a-z-]*\) .*/\1/p; s/^  \([a-z][a-z-]*\)$/\1/p'); do
            echo ".SS $command"
            echo '.nf'
            "$name" "$command" --help | sed -e 's/\\/\\e/g' -e 's/^\./\\\&./' \
                -e '/--help-all/d' -e '/-h, --help/d'
            echo '.fi'
        done
    } > "$work/include"
fi
if [ "$name" = kavel-server ]; then
    cat >> "$work/include" <<'TEXT'
[DESCRIPTION]
.B kavel-server
is the service the Kavel editor signs in to and sends recordings to for speech
recognition: one process on one SQLite file, or API nodes and workers on one
PostgreSQL database. It logs to standard output, one line each.
[FILES]
.TP
.I /etc/kavel-server.conf
The system service's settings, read with
.BR "--config" ;
.B add-user
run by root without
.B --database
reads it too.
.TP
.I /var/lib/kavel-server
The system service's database and, beside it, its uploads.
[SEE ALSO]
.BR kavel (1),
.BR kavel-cli (1),
and /usr/share/doc/kavel-server/server.md
TEXT
fi
cat >> "$work/include" <<'TEXT'
[REPORTING BUGS]
Report bugs to the Kavel developers.
TEXT
help2man --no-info --no-discard-stderr --version-string="$version" --name="$summary" \
    --include="$work/include" --output="$work/$name.1" "$name"
gzip -9n -c "$work/$name.1" > "$out"
