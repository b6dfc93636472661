#!/bin/sh
# Switches Screen Sharing on: a VNC server that shows the asking user's X display and asks there before it
# lets anybody in. Ends with success once that server listens; else everything is as before.
set -u
# shellcheck source=resources/screen-sharing.sh
. "$(dirname "$0")/screen-sharing.sh"

# True for a display of Xwayland, which shows programs that use X, but not the desktop.
display_is_wayland() {
    number=${DISPLAY##*:}
    number=${number%%.*}
    for file in /proc/[0-9]*/comm; do
        { read -r name <"$file"; } 2>/dev/null
        [ "$name" = Xwayland ] || continue
        tr '\0' '\n' <"${file%comm}cmdline" 2>/dev/null | grep -qxF ":$number" && return 0
    done
    return 1
}

refuse_wayland() {
    die "This is a Wayland session, where x11vnc cannot show the desktop. Choose an X11 (Xorg) session when you log in."
}

check_display() {
    case ${DISPLAY-} in
    '') die "There is no X display to share (DISPLAY is not set)." ;;
    *[!A-Za-z0-9.:_/-]* | -*) die "\"$DISPLAY\" is not the name of an X display." ;;
    esac
    case $DISPLAY in
    *:*.0) DISPLAY=${DISPLAY%.0} ;;
    esac
    ! display_is_wayland || refuse_wayland
}

# Leaves a server alone that is on already. True when it is ours, and sound.
already_on() {
    if find_server; then
        server_listens || {
            stop_server || die "The Screen Sharing server (process $server_pid) hangs and cannot be ended."
            return 1
        }
        [ "$server_user $server_display" = "$user_id $DISPLAY" ] ||
            die "Screen Sharing is already on for another session (display $server_display)."
        return 0
    fi
    if [ -n "$(sockets 0A '[0-9A-F]*')" ]; then
        write_setting false
        die "Another program already listens on port $port. It is left alone, since it may let in anybody without asking. End it and try again."
    fi
    return 1
}

undo() {
    if [ -n "${server_start-}" ] && [ "$(process_start "$server_pid")" = "$server_start" ]; then
        stop_server
    fi
    rm -f "$run/server"
    write_setting false
}

# The lock is closed in the server, or it would be held until the server ends. It starts in a session of
# its own, so that no terminal's signals reach it. -rfbportv6 -1 is what really keeps IPv6 closed.
start_server() {
    ln -sfn "$server_program" "$link" || die "Cannot make the link $link."
    {
        cd / && exec_as_user "$DISPLAY" "$server_authority" setsid "$link" -display "$DISPLAY" \
            -rfbport "$port" -noipv6 -no6 -rfbportv6 -1 -shared -forever -accept popup \
            -norc -nopw -nolookup -noncache
    } </dev/null >"$run/log" 2>&1 9>&- &
    server_pid=$!
    server_start=$(process_start "$server_pid")
    save_server
}

wait_until_server_listens() {
    tenths=100
    until server_listens; do
        if [ "$(process_start "$server_pid")" != "$server_start" ]; then
            ! grep -q 'XOpenDisplay.*failed' "$run/log" || die "x11vnc cannot open the X display $DISPLAY."
            die "x11vnc ended before it listened. Its messages are in $run/log."
        fi
        [ "$tenths" -gt 0 ] || die "x11vnc does not listen on port $port. Its messages are in $run/log."
        tenths=$((tenths - 1))
        sleep 0.1
    done
}

choose_asking_user
check_display
open_run_folder
if ! already_on; then
    server_program=$(command -v x11vnc) || {
        write_setting false
        die "x11vnc is not installed."
    }
    server_program=$(readlink -f "$server_program")
    server_user=$user_id server_display=$DISPLAY server_authority=${XAUTHORITY-}
    trap undo EXIT
    trap 'exit 1' HUP INT TERM
    start_server
    wait_until_server_listens
    # Some desktops start Xwayland only when the first program asks for it.
    ! display_is_wayland || refuse_wayland
fi
write_setting true "$server_pid" || die "Cannot write the Screen Sharing setting below $root."
trap - EXIT
echo "zelvo: x11vnc shares display $DISPLAY on port $port and asks before it lets anybody in."
