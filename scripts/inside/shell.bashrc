# What the shell inside the simulated device offers.
# shellcheck shell=bash
. "${BASH_SOURCE[0]%/*}/device.bash"
set +euo pipefail # a shell for people
unset HISTFILE
PS1='\[\e[1m\](simulated device)\[\e[0m\] \w \$ '

applet() {
    changeApplet "$1"
}

cat <<'END'

You are inside the simulated device: a world of its own that ends, with everything in it, when you leave.

  /media/usb/USB_X60.1, USB_X60.2    two sticks; the second holds the update file device.fwf
  /mnt/usrdata/device                the device: settings, recipes, users, firmware
  /run/log                           service, device-manager, applet-control, transfer-script, messages

Try:
  call GetUSBStickDetails
  call DoBackup USB_X60.1 1 today.psb             then: call GetBackupFilesList USB_X60.1 ''
  call DoOSUpdate USB_X60.2 device.fwf            then: cat /mnt/usrdata/device/firmware/version
  applet 256                                      another applet: the service ends, and is started again
  gdbus introspect --system -d com.morvane.transfer -o /sacIntf
  gdbus monitor --system -d com.morvane.transfer
  tail -f /run/log/service

"call" is short for gdbus call --system -d com.morvane.transfer -o /sacIntf -m com.morvane.transfer.sac.…
Start one job in one life of the service: "applet 256" between two jobs.

END
