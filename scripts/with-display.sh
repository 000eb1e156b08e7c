#!/bin/sh
# Runs a program that needs an X display: on the one set, or else on a virtual X server of its
# own. The server picks a free display number itself (-displayfd), so programs started side by
# side never race for one.
if [ -n "$DISPLAY" ]; then exec "$@"; fi
number_file=$(mktemp)
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$number_file" 2>/dev/null &
server=$!
tries=0
while [ ! -s "$number_file" ] && [ "$tries" -lt 100 ]; do
  sleep 0.1
  tries=$((tries + 1))
done
DISPLAY=":$(cat "$number_file")" "$@"
status=$?
kill "$server" 2>/dev/null
rm -f "$number_file"
exit "$status"
