# The servers that can be Screen Sharing: each shows an X display, listens, and asks there before it lets
# anybody in.
#   x11vnc
#   x0vncserver  TigerVNC's
# KDE's krfb is none of them. Whatever its settings it wants a password before it asks (22.12.3 offers no other
# way in, and makes one up where none is set), and a link carries none.
# shellcheck shell=sh disable=SC2154  # the variables are those of screen-sharing.sh

# Sets server_kind and server_program. A script is passed over: the server would be a child of it, under
# another name (Debian's x0vncserver is one, around X0tigervnc).
find_program() { # find_program KIND
    case $1 in
    x0vncserver) names='X0tigervnc x0vncserver' ;;
    *) names=$1 ;;
    esac
    for name in $names; do
        server_program=$(readlink -f "$(command -v "$name")" 2>/dev/null) || continue
        if [ -n "$server_program" ] && [ "$(head -c 2 "$server_program")" != '#!' ]; then
            server_kind=$1
            return 0
        fi
    done
    return 1
}

# Becomes the server, in a session of its own, so that no terminal's signals reach it.
exec_server() {
    case $server_kind in
    # -rfbportv6 -1 is what really keeps IPv6 closed. With its remote control, an X property, any program on
    # the display could switch the question off.
    x11vnc)
        set -- -display "$server_display" -rfbport "$port" -noipv6 -no6 -rfbportv6 -1 -shared -forever \
            -accept popup -norc -noremote -nopw -nolookup -noncache
        ;;
    # A TigerVNC that has no such question does not start with this.
    x0vncserver)
        set -- -display "$server_display" -rfbport "$port" -UseIPv6=0 -AlwaysShared=1 -SecurityTypes None \
            -QueryConnect=1 -QueryConnectTimeout 120
        ;;
    esac
    exec_as_user "$server_display" "$server_authority" setsid "$link" "$@"
}

# The lock is closed in the server, or it would be held until the server ends. The server has a line for
# each connection that anybody makes, so its log has a limit: 1 MiB, beyond which writing fails.
start_server() {
    ln -sfn "$server_program" "$link" || die "Cannot make the link $link."
    (trap '' XFSZ && ulimit -f 2048 && cd / && exec_server) </dev/null >"$run/log" 2>&1 9>&- &
    server_pid=$!
    server_start=$(process_start "$server_pid")
    save_server
}

explain_end() {
    if grep -qiE 'XOpenDisplay.*failed|(open|connect to) display' "$run/log"; then
        give_up display-refused "$server_kind cannot open the display."
    fi
    give_up server-failed "$server_kind ended before it listened. Its messages are in $run/log."
}

wait_until_server_listens() {
    tenths=200
    until server_listens; do
        [ "$(process_start "$server_pid")" = "$server_start" ] || explain_end
        [ "$tenths" -gt 0 ] ||
            give_up server-failed "$server_kind does not listen on port $port. Its messages are in $run/log."
        tenths=$((tenths - 1))
        sleep 0.1
    done
}

# Runs when the tool ends: without success there is no server and no setting, but a reason.
settle() {
    status=$?
    trap - EXIT HUP INT TERM
    if [ "$status" -eq 0 ]; then
        rm -f "$run/reason"
        exit 0
    fi
    if [ -n "${server_started-}" ]; then
        if [ -n "$server_start" ] && [ "$(process_start "$server_pid")" = "$server_start" ]; then
            stop_server
        fi
        rm -f "$run/server"
        write_setting off
    fi
    echo "${reason:-server-failed}" | replace_file "$run/reason"
    exit "$status"
}

# What follows is undone unless the tool ends with success.
settle_at_exit() {
    trap settle EXIT
    trap 'exit 1' HUP INT TERM
}

bring_server_up() {
    server_started=yes
    start_server
    wait_until_server_listens
}
