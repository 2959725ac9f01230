#!/bin/sh
# The simulated device's transfer script: writes its arguments as one line. Run by /bin/sh, so plain sh.
set -eu
mkdir -p /run/log
printf '%s\n' "$*" >> /run/log/transfer-script
