#!/bin/sh
# Prepares the emulated terminal for a person at its console.
insert_one_card /dev/mmcblk0 sync ||
    echo "The card cannot be mounted. Turn the terminal off, and start it with --fresh."
sh /opt/terminal/demo.sh --here /bin
cat <<'GREETING'

A terminal: MIPS32, uClibc, an SD card (FAT, mounted sync). The demonstration above has run here.

  mavutil help                                 looks into a running terminal
  ls -l /mnt/sdcard/log                        the general log
  ls -l /mnt/sd/term/common/trace              the trace files
  sh /opt/terminal/demo.sh --here /bin         the demonstration once more

The card stays as you leave it. "exit" turns the terminal off; Ctrl-A x cuts its power.

GREETING
export PS1='terminal:\w# '
cd /root || return
setsid cttyhack sh
