#!/bin/sh
# Switches Screen Sharing on: screensharingd, as the asking user, which finds that user's Zelvo, has it ask
# about everybody who wants in, and ends with it. Ends with success once the server listens; else
# everything is as before, and run/reason says why.
set -u
# shellcheck source=resources/screen-sharing.sh
. "$(dirname "$0")/screen-sharing.sh"

# Beside the resources in a build folder, or where it is installed.
find_program() {
    tools=$(cd "$(dirname "$0")" && pwd) || return 1
    for program in "${tools%/*}/screensharingd" \
        "${tools%/share/zelvo/resources}/libexec/zelvo/screensharingd"; do
        server_program=$(readlink -f "$program") && [ -x "$server_program" ] && return 0
    done
    return 1
}

check_session() {
    # Where the application listens, if it can: it does not in a folder that others reach, or of too long a name.
    socket=${XDG_RUNTIME_DIR:-/run/user/$user_id}/zelvo/screen-sharing
    [ -S "$socket" ] || give_up no-runtime-folder "No Zelvo listens at $socket."
    [ -n "${WAYLAND_DISPLAY-}${DISPLAY-}" ] ||
        give_up no-display "There is no display to share (neither WAYLAND_DISPLAY nor DISPLAY is set)."
}

# In a session of its own, so that no terminal's signals reach it, and without the lock, which would be held
# for as long as it lives. Its log has a limit: 1 MiB, beyond which writing fails.
start_server() {
    : >"$run/answer"
    # shellcheck disable=SC3045  # every sh of a Linux system has it
    (trap '' XFSZ && ulimit -S -f 2048 && cd / && exec_as_user setsid "$server_program" \
        --socket "$socket" --port "$port") \
        </dev/null >"$run/answer" 2>"$run/log" 9>&- &
    server_pid=$!
    started=yes
    server_start=$(process_start "$server_pid")
    save_server
}

# The server says "asking" where the desktop asks the user first, who may take minutes; it ends, and so does
# the waiting, with the application that is to be shown.
wait_until_server_listens() {
    tries=500
    while :; do
        # First, as the word may be its last.
        runs=yes
        [ "$(process_start "$server_pid")" = "$server_start" ] || runs=
        answer=$(tail -n 1 "$run/answer" 2>/dev/null)
        case $answer in
        listening) return 0 ;;
        asking)
            tries=500
            sleep 0.2
            ;;
        ?*) give_up "$answer" "$(tail -n 1 "$run/log")" ;;
        esac
        if [ -z "$runs" ] || [ "$tries" -le 0 ]; then
            give_up server-failed "The server did not start. Its messages are in $run/log."
        fi
        tries=$((tries - 1))
        sleep 0.02
    done
}

# Where the asking user's Zelvo has a server, it needs no other. One whose Zelvo has ended ends by itself,
# unless it was stopped.
already_on() {
    find_server || return 1
    [ "$server_user" = "$user_id" ] ||
        give_up other-session "Screen Sharing is on for another user of this computer."
    kill -s CONT "$server_pid" 2>/dev/null
    sleep 0.3
    find_server || return 1
    grep -qx listening "$run/answer" && return 0
    stop_server || die "The Screen Sharing server (process $server_pid) hangs and cannot be ended."
    return 1
}

# Runs when the tool ends: without success there is no server and no setting, but a reason.
settle() {
    status=$?
    trap - EXIT HUP INT TERM
    if [ "$status" -eq 0 ]; then
        rm -f "$run/reason"
        exit 0
    fi
    if [ -n "${started-}" ]; then
        if [ -n "$server_start" ] && [ "$(process_start "$server_pid")" = "$server_start" ]; then
            stop_server
        fi
        rm -f "$run/server"
        write_setting off
    fi
    # A full disk still has a place for an empty file.
    echo "${reason:-server-failed}" | replace_file "$run/reason" || : >"$run/reason"
    exit "$status"
}

choose_asking_user
open_run_folder
trap settle EXIT
trap 'exit 1' HUP INT TERM
check_session
find_program || give_up not-installed "The program screensharingd is not where it belongs."
if ! already_on; then
    write_setting off || cannot_write
    start_server
    wait_until_server_listens
fi
write_setting on || cannot_write
echo "zelvo: the screen is shared on port $port, with a question to whoever sits here."
