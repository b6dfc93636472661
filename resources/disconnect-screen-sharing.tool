#!/bin/sh
# Ends the viewers, the one that still waits for an answer included, and leaves Screen Sharing on.
set -u
# shellcheck source=resources/screen-sharing.sh
. "$(dirname "$0")/screen-sharing.sh"
# shellcheck source=resources/screen-sharing-servers.sh
. "$(dirname "$0")/screen-sharing-servers.sh"

viewers() { sockets 01 '[0-9A-F]*'; }

as_user() { (exec_as_user "$server_display" "$server_authority" timeout 3 "$@"); }

# While the server asks it does nothing else, so its question is answered with no.
answer_no() {
    command -v xdotool >/dev/null || return 0
    for window in $(as_user xdotool search --onlyvisible --name '^new x11vnc client$' 2>/dev/null); do
        as_user xdotool key --window "$window" n 2>/dev/null
    done
}

# Only root may do this, and it leaves an open question behind that has lost its viewer.
cut_connections() {
    [ "$(id -u)" -ne 0 ] || ss -K state established sport = ":$port" >/dev/null 2>&1
}

disconnect_x11vnc() {
    rounds=8
    while [ -n "$(viewers)" ]; do
        [ "$rounds" -gt 0 ] || die "A viewer could not be disconnected."
        rounds=$((rounds - 1))
        as_user "$link" -norc -display "$server_display" -R disconnect:all >/dev/null 2>&1
        sleep 0.5
        [ -n "$(viewers)" ] || break
        answer_no
        [ "$rounds" -gt 3 ] || cut_connections
        sleep 0.2
    done
}

# The others take no orders. Who may not cut their connections ends them, and starts them anew.
disconnect_other() {
    [ -n "$(viewers)" ] || return 0
    cut_connections
    sleep 0.2
    [ -n "$(viewers)" ] || return 0
    settle_at_exit
    server_started=yes
    stop_server || die "$server_kind (process $server_pid) cannot be ended."
    bring_server_up
    write_setting on || die "Cannot write the Screen Sharing setting below $root."
}

open_run_folder
if ! find_server || ! server_listens; then
    die "Screen Sharing is not on, or was not switched on by Zelvo."
fi
choose_user "$server_user"
case $server_kind in
x11vnc) disconnect_x11vnc ;;
*) disconnect_other ;;
esac
echo "zelvo: Nobody is connected."
