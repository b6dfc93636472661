#!/bin/sh
# Ends the viewers, and refuses whoever is asked about; leaves Screen Sharing on.
set -u
# shellcheck source=resources/screen-sharing.sh
. "$(dirname "$0")/screen-sharing.sh"

open_run_folder
leave_others_alone
find_server || die "Screen Sharing is not on, or was not switched on by Zelvo."
kill -s USR1 "$server_pid" || die "The Screen Sharing server (process $server_pid) cannot be told."
# One that was stopped hears of it now.
kill -s CONT "$server_pid"
echo "zelvo: Nobody is connected."
