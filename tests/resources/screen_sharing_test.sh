#!/usr/bin/env bash
# The three Screen Sharing tools against a real X server and a real VNC server, in a network of their own,
# so that the VNC port is free and nobody else's server is touched. Argument: the resource folder.
# Exit status 77 says that something needed is missing here.
# shellcheck disable=SC2317  # most functions are called by check
set -u
tools=$1

if [ "${2-}" != inside ]; then
    for program in Xvfb x11vnc xdotool gvnccapture unshare setpriv flock ss ip; do
        command -v $program >/dev/null || { echo "SKIPPED: $program is missing"; exit 77; }
    done
    alone=(unshare -n)
    [ "$(id -u)" -eq 0 ] || alone+=(-r)
    "${alone[@]}" true || { echo "SKIPPED: no network namespace can be made here"; exit 77; }
    exec "${alone[@]}" bash "$0" "$tools" inside
fi

ip link set lo up
folder=$(mktemp -d)
chmod 755 "$folder"
export ZELVO_ROOT=$folder/root WAYLAND_DISPLAY=wayland-0
# Without -noreset it would start over when its last client leaves, and a client that comes meanwhile hangs.
Xvfb -displayfd 3 -screen 0 640x480x24 -nolisten tcp -noreset -ac 3>"$folder/display" 2>/dev/null &
xvfb=$!
others=()
trap 'tool disable; kill $xvfb "${others[@]}" 2>/dev/null; wait; rm -rf "$folder"' EXIT

failures=0
check() { # check TEXT COMMAND...: the command must succeed
    if "${@:2}"; then
        echo "ok: $1"
    else
        echo "FAILED: $1; the tool last said: $(cat "$folder/out")"
        failures=$((failures + 1))
    fi
}
refused() { ! "$@"; }
eventually() { for _ in {1..100}; do "$@" && return; sleep 0.1; done; return 1; }

tool() {
    case $1 in
    disconnect) sh "$tools/disconnect-screen-sharing.tool" ;;
    *) sh "$tools/$1-screen-sharing-and-guess-access.tool" ;;
    esac </dev/null >"$folder/out" 2>&1
}
by_another() { (ZELVO_USER=daemon tool "$1"); }
said() { grep -q "$1" "$folder/out"; }
setting() { tr -d '\n\t' <"$ZELVO_ROOT/Library/Preferences/com.apple.RemoteManagement.plist" | grep -q "$1"; }
reason() { [ "$(cat "$ZELVO_ROOT/run/reason" 2>/dev/null)" = "$1" ]; }
start_of() { sed 's/.*) //' "/proc/$1/stat" | cut -d ' ' -f 20; }
allows() {
    setting "ReqPermEnabled</key><true/>.*ServerPid</key><integer>$(server)</integer>" &&
        setting "ServerStart</key><integer>$(start_of "$(server)")</integer>"
}
forbids() { setting '<false/></dict>'; }
server() { pgrep -x --ns $$ --nslist net screensharingd; }
servers() { [ "$(server | wc -l)" -eq "$1" ]; }
listeners() { [ "$(ss -Htln "sport = :5900" | awk '{print $4}')" = "$1" ]; }
viewers() { [ "$(ss -Htn state established 'sport = :5900' | wc -l)" -eq "$1" ]; }
question() { xdotool search --onlyvisible --name "${asks_as:-^new x11vnc client\$}" 2>/dev/null; }
answer() { eventually question >/dev/null && xdotool key --window "$(question)" "$1" 2>/dev/null; }
capture() { timeout 20 gvnccapture 127.0.0.1:0 "$folder/screen.png" >/dev/null 2>&1; }
ss=$(command -v ss)
ss() { "$ss" "$@"; }

# Programs that are not installed: all the others are found in a folder of links.
mkdir "$folder/bin"
ln -s /usr/bin/* "$folder/bin"
path=$PATH
without() {
    with_all
    for program; do mv "$folder/bin/$program" "$folder/$program" 2>/dev/null; done
    PATH=$folder/bin
}
with_all() {
    for program in x11vnc X0tigervnc x0vncserver; do
        mv "$folder/$program" "$folder/bin/$program" 2>/dev/null
    done
    PATH=$path
}

eventually test -s "$folder/display"
DISPLAY=:$(cat "$folder/display")
export DISPLAY

env -u WAYLAND_DISPLAY x11vnc -norc -nopw -localhost -forever >/dev/null 2>&1 &
foreign=$!
others+=("$foreign")
eventually listeners $'127.0.0.1:5900\n[::1]:5900'
check "a server started by hand is not ours to publish" refused tool enable
check "  and the reason is given" said 'already listens on port 5900'
check "  in a word, too" reason port-taken
check "  and viewers may not ask" forbids
tool disable
check "  and it is left running" kill -0 $foreign
kill $foreign
eventually listeners ''

check "a display that is not there" refused env DISPLAY=:999 sh "$tools/enable-screen-sharing-and-guess-access.tool"
check "  is named as the reason" reason display-refused
check "  leaves nothing behind" servers 0
check "  and viewers may not ask" forbids

printf '#!/bin/sh\nwhile sleep 1; do :; done\n' >"$folder/Xwayland"
chmod 755 "$folder/Xwayland"
"$folder/Xwayland" "$DISPLAY" -rootless >/dev/null 2>&1 &
wayland=$!
others+=("$wayland")
eventually pgrep -x Xwayland >/dev/null
check "a Wayland session" refused tool enable
check "  is named as the reason" said 'Wayland session'
check "  in a word, too" reason wayland-no-server
check "  and nothing is started" servers 0
check "no display at all" refused env -u DISPLAY -u WAYLAND_DISPLAY \
    sh "$tools/enable-screen-sharing-and-guess-access.tool" 2>/dev/null
check "  is another reason" reason no-display
kill $wayland
wait $wayland 2>/dev/null

sleep 0 &
gone=$!
wait $gone
check "an application that has ended meanwhile" refused env ZELVO_ASKING_PROCESS=$gone \
    sh "$tools/enable-screen-sharing-and-guess-access.tool" 2>/dev/null
check "  leaves nothing behind" servers 0
check "  and viewers may not ask" forbids

export ZELVO_ASKING_PROCESS=$$
tool enable &
first=$!
sh "$tools/enable-screen-sharing-and-guess-access.tool" >/dev/null
check "two enable tools at once both succeed" wait $first
check "  with one server" servers 1
check "  on the IPv4 wildcard address and nowhere else" listeners 0.0.0.0:5900
check "  that is named by the setting" allows
check "  and no reason is left" refused reason no-display
ours=$(server)

env -u WAYLAND_DISPLAY timeout 3 x11vnc -norc -R accept: >/dev/null 2>&1
eventually grep -q "read.*cmd=accept:" "$ZELVO_ROOT/run/log"
capture &
viewer=$!
answer n
check "no, after a program tried to switch the question off: the viewer gets nothing" refused wait $viewer
capture &
viewer=$!
answer y
check "yes: the viewer gets the screen" wait $viewer
check "  whole" grep -q '640 x 480' <(file "$folder/screen.png")

exec 4<>/dev/tcp/127.0.0.1/5900
printf 'RFB 003.008\n\1\1' >&4
answer y
sleep 0.5
exec 5<>/dev/tcp/127.0.0.1/5900
eventually question >/dev/null
check "one viewer is in and one is being asked about" viewers 2
check "disconnect" tool disconnect
check "  ends both" viewers 0
check "  and the question" refused question
check "  and leaves the server up" test "$(server)" = "$ours"
exec 4>&- 5>&-
check "enable finds its own server" tool enable
check "  and keeps it" test "$(server)" = "$ours"

kill -STOP "$ours"
check "disable ends even a server that hangs" tool disable
check "  wholly" servers 0
check "  with its port" listeners ''
check "  and viewers may not ask" forbids
check "disconnect with Screen Sharing off is refused" refused tool disconnect

tool enable
sed -i "1s/.*/$xvfb/" "$ZELVO_ROOT/run/server"
tool disable
check "a process that got a former server's number is not ended" kill -0 $xvfb
kill "$(server)"
eventually servers 0

# Another server the whole way. What is done with its question is KIND_no and KIND_yes.
try_server() { # try_server KIND TITLE_OF_THE_QUESTION
    asks_as=$2
    check "$1 is taken where it is the first there is" tool enable
    check "  and named" said "^zelvo: $1 shares"
    check "  and known as any other" allows
    ours=$(server)
    capture &
    viewer=$!
    asked
    "$1_no"
    check "no: the viewer gets nothing" refused wait $viewer
    capture &
    viewer=$!
    asked
    "$1_yes"
    check "yes: the viewer gets the screen" wait $viewer
    mv "$folder/bin/ss" "$folder"
    for manner in "" " by who may not cut connections"; do
        [ -z "$manner" ] || mv "$folder/bin/perl" "$folder"
        exec 4<>/dev/tcp/127.0.0.1/5900
        printf 'RFB 003.008\n\1\1' >&4
        asked
        "$1_yes"
        eventually refused question
        capture &
        viewer=$!
        asked
        check "disconnect$manner" tool disconnect
        check "  ends the viewer who asks" refused wait $viewer
        check "  and the other" viewers 0
        check "  and the question" refused question
        check "  and leaves a server up that counts" allows
        [ -n "$manner" ] || check "  which is the same" test "$(server)" = "$ours"
        exec 4>&-
    done
    mv "$folder/"{perl,ss} "$folder/bin"
    check "disable" tool disable
    check "  ends it wholly" servers 0
}
asked() { eventually question >/dev/null; sleep 0.5; }
click() { # click X FROM_BELOW, in the window that asks
    eval "$(xdotool getwindowgeometry --shell "$(question | tail -n 1)")"
    xdotool mousemove $((X + $1)) $((Y + HEIGHT - $2)) click 1
}
x0vncserver_yes() { click 30 12; }
x0vncserver_no() { click "WIDTH - 30" 12; }

if command -v X0tigervnc >/dev/null; then
    without x11vnc
    try_server x0vncserver 'Accept Connection'
else
    echo "SKIPPED: x0vncserver is missing"
fi
without x11vnc X0tigervnc x0vncserver
check "no server at all" refused tool enable
check "  is named as the reason" reason not-installed
with_all
asks_as=''

if [ "$(id -u)" -eq 0 ] && setpriv --reuid nobody --clear-groups true 2>/dev/null; then
    export ZELVO_USER=nobody
    check "root switches on for the user who asked" tool enable
    check "  as that user" test "$(ps -o user= -p "$(server)")" = nobody
    exec 5<>/dev/tcp/127.0.0.1/5900
    eventually question >/dev/null
    check "  and disconnects" tool disconnect
    ours=$(server)
    for act in disconnect disable; do
        check "  and nobody else's request to $act counts" refused by_another "$act"
    done
    check "  nor is the server ended" test "$(server)" = "$ours"
    check "  and off again" tool disable
    check "  wholly" servers 0
else
    echo "SKIPPED: no second user here"
fi
exit $((failures > 0))
