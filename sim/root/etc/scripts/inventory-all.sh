#!/bin/sh
# Simulated full inventory collection: runs for about three seconds and
# keeps "/var/inventory-all-status" (state word and progress) current, as
# the controller's collection does: IN_PROGRESS with a growing number, then
# COMPLETED 100. Each state is written whole (temp file and rename), so a
# reader never sees half a line. The platform root is $GDS_ROOT.
status="${GDS_ROOT:-}/var/inventory-all-status"
step=${INVENTORY_STEP_SECONDS:-0.3}
write() {
    printf '%s %s\n' "$1" "$2" > "$status.tmp.$$" && mv -f "$status.tmp.$$" "$status"
}
write IN_PROGRESS 0
for progress in 10 20 30 40 50 60 70 80 90; do
    sleep "$step"
    write IN_PROGRESS "$progress"
done
sleep "$step"
write COMPLETED 100
