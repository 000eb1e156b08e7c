#!/bin/sh
# Runs a program that needs an X display: on the one set, or on a virtual X server of its own.
if [ -n "$DISPLAY" ]; then exec "$@"; fi
exec xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp" "$@"
