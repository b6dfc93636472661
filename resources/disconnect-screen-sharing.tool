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

viewers_end() {
    tenths=20
    while [ -n "$(viewers)" ]; do
        [ "$tenths" -gt 0 ] || return 1
        tenths=$((tenths - 1))
        sleep 0.1
    done
}

# Takes the server's sockets of these inodes, which a debugger may do, and shuts them down. False when none
# could be taken. The numbers are pidfd_open and pidfd_getfd.
# shellcheck disable=SC2016  # the variables are Perl's
shut_down() {
    command -v perl >/dev/null && perl -e '
        my ($server, %inodes) = (shift, map { ("socket:[$_]", 1) } @ARGV);
        my ($process, $done) = (syscall(434, $server + 0, 0), 0);
        for my $path (glob "/proc/$server/fd/*") {
            my $number = $inodes{readlink($path) // ""} && ($path =~ /(\d+)$/)[0] // next;
            my $socket = syscall(438, $process, $number + 0, 0);
            open(my $file, "+<&=", $socket) or next;
            $done += shutdown($file, 2);
        }
        exit !$done' "$server_pid" "$@" 2>/dev/null
}

# By root alone, and on kernels that have it.
kill_sockets() {
    [ "$(id -u)" -eq 0 ] && ss -K state established sport = ":$port" >/dev/null 2>&1
}

cut_connections() {
    # shellcheck disable=SC2046  # one inode a line
    { shut_down $(viewers) && viewers_end; } || { kill_sockets && viewers_end; }
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

# The others take no orders. Where their connections may not be cut, as where only a parent may debug, they
# are ended and started anew.
disconnect_other() {
    [ -n "$(viewers)" ] || return 0
    if cut_connections; then
        hide_question
        return 0
    fi
    settle_at_exit
    server_started=yes
    stop_server || die "$server_kind (process $server_pid) cannot be ended."
    bring_server_up
    write_setting on || die "Cannot write the Screen Sharing setting below $root."
}

# A question that has lost its viewer. The next one takes its place.
hide_question() {
    command -v xdotool >/dev/null || return 0
    for window in $(as_user xdotool search --onlyvisible --name '^VNC Server : Accept Connection\?$' 2>/dev/null); do
        as_user xdotool windowunmap "$window" 2>/dev/null
    done
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
