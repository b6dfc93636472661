#!/bin/sh
# Ends the viewers, the one that still waits for an answer included, and leaves Screen Sharing on.
set -u
# shellcheck source=resources/screen-sharing.sh
. "$(dirname "$0")/screen-sharing.sh"
# shellcheck source=resources/screen-sharing-servers.sh
. "$(dirname "$0")/screen-sharing-servers.sh"

viewers() { sockets 01 '[0-9A-F]*'; }

# The limit is not left to the user, who could stop it and have the lock held for ever.
as_user() { (limit='timeout -k 1 3' exec_as_user "$server_display" "$server_authority" "$@") 9>&-; }

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

# x11vnc does nothing else while it asks, so its question is answered with no. The other's, which has lost
# its viewer, is put away; the next one takes its place.
end_question() {
    command -v xdotool >/dev/null || return 0
    for window in $(as_user xdotool search --onlyvisible --name '^new x11vnc client$' 2>/dev/null); do
        as_user xdotool key --window "$window" n 2>/dev/null
    done
    for window in $(as_user xdotool search --onlyvisible --name '^VNC Server : Accept Connection\?$' 2>/dev/null); do
        as_user xdotool windowunmap "$window" 2>/dev/null
    done
}

# shellcheck disable=SC2046  # one inode a line
cut_what_is_taken() { shut_down $(viewers) || kill_sockets; }

# Where the first cannot be cut, none can. A later one may wait in line until the one before has been
# answered, and there is nothing to cut before the server takes its connection.
cut_connections() {
    [ -n "$(viewers)" ] || return 0
    cut_what_is_taken || return 1
    rounds=8
    until
        end_question
        sleep 0.2
        [ -z "$(viewers)" ]
    do
        [ "$rounds" -gt 0 ] || return 1
        rounds=$((rounds - 1))
        cut_what_is_taken
    done
}

# Where connections may not be cut, as where only a parent may debug, the server ends and starts anew.
start_anew() {
    settle_at_exit
    server_started=yes
    stop_server || die "$server_kind (process $server_pid) cannot be ended."
    bring_server_up
    write_setting on || die "Cannot write the Screen Sharing setting below $root."
}

open_run_folder
leave_others_alone
if ! find_server || ! server_listens; then
    die "Screen Sharing is not on, or was not switched on by Zelvo."
fi
choose_user "$server_user"
cut_connections || start_anew
echo "zelvo: Nobody is connected."
