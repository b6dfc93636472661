#!/bin/sh
# Switches off what the enable tool switched on, and nothing else.
set -u
# shellcheck source=resources/screen-sharing.sh
. "$(dirname "$0")/screen-sharing.sh"

open_run_folder
leave_others_alone
rm -f "$run/reason"
# The setting first: it must not outlive the server that it speaks of. A full disk can still forget it.
# Whatever becomes of it, the server ends, without which it counts for nothing.
written=yes
write_setting off || rm -f "$setting" || written=
if find_server; then
    stop_server || die "The Screen Sharing server (process $server_pid) cannot be ended."
    echo "zelvo: Screen Sharing is off."
else
    rm -f "$run/server"
    echo "zelvo: Screen Sharing was off already."
fi
[ -n "$written" ] || cannot_write
