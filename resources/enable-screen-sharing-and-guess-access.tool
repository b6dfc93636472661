#!/bin/sh
# Switches Screen Sharing on: a VNC server that shows the asking user's session and asks there before it
# lets anybody in. Ends with success once that server listens; else everything is as before, and run/reason
# says why.
set -u
# shellcheck source=resources/screen-sharing.sh
. "$(dirname "$0")/screen-sharing.sh"
# shellcheck source=resources/screen-sharing-servers.sh
. "$(dirname "$0")/screen-sharing-servers.sh"

# True for a display of Xwayland, which shows programs that use X, but not the desktop.
display_is_wayland() {
    number=${server_display##*:}
    number=${number%%.*}
    for file in /proc/[0-9]*/comm; do
        { read -r name <"$file"; } 2>/dev/null
        [ "$name" = Xwayland ] || continue
        tr '\0' '\n' <"${file%comm}cmdline" 2>/dev/null | grep -qxF ":$number" && return 0
    done
    return 1
}

refuse_wayland() {
    give_up wayland-no-server "This is a Wayland session, in which no server can show the desktop and ask first. Choose an X11 (Xorg) session when you log in."
}

find_session() {
    server_user=$user_id server_display=${DISPLAY-}
    server_authority=$(printf '%s\n' "${XAUTHORITY-}" | head -n 1)
    case $server_display in
    '')
        [ -z "${WAYLAND_DISPLAY-}" ] || refuse_wayland
        give_up no-display "There is no X display to share (DISPLAY is not set)."
        ;;
    *[!A-Za-z0-9.:_/-]* | -*) give_up no-display "\"$server_display\" is not the name of an X display." ;;
    *:*.0) server_display=${server_display%.0} ;;
    esac
    ! display_is_wayland || refuse_wayland
}

# Leaves a server alone that is on already. True when it is ours, and sound.
already_on() {
    session="$server_user $server_display"
    if (find_server); then
        find_server
        server_listens || {
            stop_server || die "The Screen Sharing server (process $server_pid) hangs and cannot be ended."
            find_session
            return 1
        }
        [ "$server_user $server_display" = "$session" ] ||
            give_up other-session "Screen Sharing is already on for another session (display $server_display)."
        return 0
    fi
    if [ -n "$(sockets 0A '[0-9A-F]*')" ]; then
        write_setting off
        give_up port-taken "Another program already listens on port $port. It is left alone, since it may let in anybody without asking. End it and try again."
    fi
    return 1
}

# The application switches off at its quit what it saw come on. What comes on after its end nobody would.
asker_is_there() {
    [ -z "$asker" ] || { [ -n "$asker_start" ] && [ "$(process_start "$asker")" = "$asker_start" ]; }
}

asker=${ZELVO_ASKING_PROCESS-}
asker_start=${asker:+$(process_start "$asker")}
choose_asking_user
open_run_folder
settle_at_exit
find_session
if ! already_on; then
    write_setting off || die "Cannot write the Screen Sharing setting below $root."
    find_program x11vnc || find_program x0vncserver ||
        give_up not-installed "Neither x11vnc nor x0vncserver is installed."
    bring_server_up
    # Some desktops start Xwayland only when the first program asks for it.
    ! display_is_wayland || refuse_wayland
fi
write_setting on || die "Cannot write the Screen Sharing setting below $root."
asker_is_there || die "The application that asked has ended meanwhile."
echo "zelvo: $server_kind shares display $server_display on port $port and asks before it lets anybody in."
