#!/bin/sh
# The cards of the emulated terminal: read by its first process, and by the tasks it runs.

# wait_for_card DEVICE: it takes a moment until the controller has seen a card; 10 s at most.
wait_for_card() {
    for _ in $(seq 50); do
        [ -b "$1" ] && return 0
        sleep 0.2
    done
    echo "terminal: no card at $1"
    return 1
}

# insert_card DEVICE OPTIONS DIRECTORY: mounts the card with OPTIONS such as sync, flush, defaults.
insert_card() {
    wait_for_card "$1" && mount -t vfat -o "$2" "$1" "$3"
}

# insert_one_card DEVICE OPTIONS: one card, as /mnt/sd and as /mnt/sdcard, with the folders that the
# library writes to.
insert_one_card() {
    insert_card "$1" "$2" /mnt/sd && mount -o bind /mnt/sd /mnt/sdcard &&
        mkdir -p /mnt/sdcard/log /mnt/sd/term/common/trace
}
