# What the three Screen Sharing tools have in common. They source it from their own folder.
#
# Everything they keep lies below the system root, a folder of whoever runs them, so that nobody else can
# name a process to be stopped:
#   Library/Preferences/com.apple.RemoteManagement.plist  the setting that the application reads
#   run/server  the server that was started, one value per line
#   run/reason  one word: why the enable tool could not switch on; only after it failed; empty where not even
#               the word could be written
#   run/answer  what the server says of its start, the last line counts
#   run/log, run/lock
# shellcheck shell=sh disable=SC2034  # sets variables for the tools

root=${ZELVO_ROOT:-/var/lib/zelvo}
run=$root/run
setting=$root/Library/Preferences/com.apple.RemoteManagement.plist

die() {
    printf 'zelvo: %s\n' "$1" >&2
    exit 1
}

# The word is for the application, which has a sentence for it in the user's language.
give_up() { # give_up WORD SENTENCE
    reason=$1
    die "$2"
}

# Sets user_name, user_id and user_home of the user (name or id), and a PATH that this user cannot have
# chosen where it is root that works for somebody else.
choose_user() {
    entry=$(getent passwd -- "$1") || die "There is no user \"$1\" on this computer."
    IFS=: read -r user_name _ user_id user_group _ user_home _ <<END
$entry
END
    if [ "$(id -u)" != "$user_id" ]; then
        PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
    else
        PATH=$PATH:/usr/sbin:/sbin
    fi
    export PATH
}

choose_asking_user() {
    if [ "$(id -u)" -eq 0 ]; then
        choose_user "${ZELVO_USER:-${PKEXEC_UID:-${SUDO_UID:-0}}}"
    else
        choose_user "$(id -u)"
    fi
}

# Becomes the command, as the chosen user in the session that asks. The environment is made anew.
exec_as_user() {
    for name in DISPLAY XAUTHORITY WAYLAND_DISPLAY XDG_RUNTIME_DIR XDG_SESSION_TYPE \
        XDG_CURRENT_DESKTOP XDG_STATE_HOME DBUS_SESSION_BUS_ADDRESS; do
        eval "value=\${$name-}"
        [ -z "$value" ] || set -- "$name=$value" "$@"
    done
    set -- env -i PATH="$PATH" HOME="$user_home" USER="$user_name" LOGNAME="$user_name" "$@"
    if [ "$(id -u)" != "$user_id" ]; then
        set -- setpriv --reuid "$user_id" --regid "$user_group" --init-groups "$@"
    fi
    exec "$@"
}

# Stops unless the server, if there is one, is the asking user's. Root itself may end anybody's.
leave_others_alone() {
    choose_asking_user
    if find_server && [ "$user_id" -ne 0 ] && [ "$user_id" != "$server_user" ]; then
        die "Screen Sharing is on for another user, and is left alone."
    fi
}

# Makes the folders and waits until no other tool is at work. The lock ends with the tool.
open_run_folder() {
    (umask 022 && mkdir -p "$run") || die "Cannot make the folder $run."
    [ -w "$run" ] || die "Cannot write in the folder $run."
    umask 077
    exec 9>"$run/lock"
    flock -w 30 9 || die "Another Screen Sharing tool has been at work for too long."
}

vnc_port() {
    entry=$(getent services vnc-server/tcp) || entry='vnc-server 5900/tcp'
    entry=${entry%%/*}
    echo "${entry##* }"
}

# When the process started, in ticks since boot; nothing when it has ended, reaped or not.
process_start() {
    { read -r stat <"/proc/$1/stat"; } 2>/dev/null || return 0
    # shellcheck disable=SC2086  # the fields behind the name, which may itself hold spaces
    set -- ${stat##*) }
    case $1 in
    Z | X) ;;
    *) echo "${20}" ;;
    esac
}

process_program() {
    program=$(readlink "/proc/$1/exe") || return 0
    echo "${program% (deleted)}"
}

save_server() {
    printf '%s\n' "$server_pid" "$server_start" "$server_program" "$user_id" >"$run/server"
}

# Reads what save_server wrote. False when that server has ended, even if its process id lives on.
find_server() {
    server_pid=''
    {
        read -r server_pid && read -r server_start && read -r server_program && read -r server_user
    } 2>/dev/null <"$run/server" || return 1
    [ -n "$server_start" ] && [ "$(process_start "$server_pid")" = "$server_start" ] &&
        [ "$(process_program "$server_pid")" = "$server_program" ]
}

# server_ends SIGNAL TENTHS: sends the signal and waits. True when the server has ended. One that was stopped
# hears of it at once.
server_ends() {
    kill -s "$1" "$server_pid" 2>/dev/null
    kill -s CONT "$server_pid" 2>/dev/null
    tenths=$2
    while [ "$(process_start "$server_pid")" = "$server_start" ]; do
        [ "$tenths" -gt 0 ] || return 1
        tenths=$((tenths - 1))
        sleep 0.1
    done
}

stop_server() {
    server_ends TERM 30 || server_ends KILL 20 || return 1
    rm -f "$run/server"
}

# replace_file FILE: standard input becomes its content. Readers see the old file or the new one, never a
# part. The application reads it as another user than root.
replace_file() {
    new=$(mktemp "$1.XXXXXX") || return 1
    cat >"$new" && chmod 644 "$new" && mv -f "$new" "$1" && return 0
    rm -f "$new"
    return 1
}

cannot_write() { give_up cannot-write "Cannot write the Screen Sharing setting below $root."; }

# The application believes "on" only while the server tells it that it listens.
write_setting() { # write_setting on|off
    (umask 022 && mkdir -p "${setting%/*}") || return 1
    {
        printf '%s\n' '<?xml version="1.0" encoding="UTF-8"?>' \
            '<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">' \
            '<plist version="1.0">' '<dict>' '	<key>ScreenSharingReqPermEnabled</key>'
        if [ "$1" = on ]; then
            echo '	<true/>'
        else
            echo '	<false/>'
        fi
        printf '%s\n' '</dict>' '</plist>'
    } | replace_file "$setting"
}

port=$(vnc_port)
