# What the shell inside the simulated device offers.
# shellcheck shell=bash
unset HISTFILE
PS1='\[\e[1m\](simulated device)\[\e[0m\] \w \$ '

call() {
    device call "$@"
}

completeDevice() {
    local words
    words=$(device --complete "${COMP_WORDS[@]:1:COMP_CWORD-1}")
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -o dirnames -F completeDevice device
. /usr/share/bash-completion/bash_completion
. "${BASH_SOURCE[0]%/*}/../../transferctl/completion/transferctl.bash"

cat <<'END'

You are inside the simulated device: a sandbox that ends, with everything in it, when you leave.

  /media/usb/USB_X60.1, USB_X60.2    two sticks; the second holds the update file device.fwf
  /mnt/usrdata/device                the device: settings, recipes, users, firmware
  /run/log                           device: what happened; service, transfer-script, messages: what was said

Try:
  call GetUSBStickDetails
  call DoBackup USB_X60.1 1 today.psb             then: call GetBackupFilesList USB_X60.1 ''
  call DoOSUpdate USB_X60.2 device.fwf            then: cat /mnt/usrdata/device/firmware/version
  device plug 3 --nearly-full                     another stick; device pull 3, also in the middle of a job
  device manager refuse                           faults: refuse, delay 5, hang, die-in-job; accept ends them
  device applet 256                               another applet: the service ends, and is started again
  device log -f                                   what happens
  device help                                     everything that the device can be told
  transferctl status                              the service's command-line client; transferctl --help
  gdbus introspect --system -d com.morvane.transfer -o /sacIntf
  gdbus monitor --system -d com.morvane.transfer

"call" is short for gdbus call --system -d com.morvane.transfer -o /sacIntf -m com.morvane.transfer.sac.…
Start one job in one process of the service: "device applet 256" between two jobs.

END
