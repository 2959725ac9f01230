#!/bin/sh
# The stand-in for the device's transfer script: notes its arguments as one line. Run by /bin/sh, so plain sh.
set -eu
mkdir -p /run/log
printf '%s\n' "$*" >> /run/log/transfer-script
