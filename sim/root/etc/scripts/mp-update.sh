#!/bin/sh
# The simulated adapter firmware update: writes the image into the card's
# backup firmware slot, moving the card's update status
# (/var/cards/<slot>/fwstatus, the adapterFWStatus read) through its stages:
#
#   in-progress 10 -> in-progress 40 -> in-progress 80 -> completed 100
#
# and ends with the new image as firmware/<id> (state backup; activation
# makes it the running one). Usage:
#
#   mp-update.sh SLOT INTERFACE MAC IMAGE OPTION
#
# The image is a text file with a "version: <version>" line. The data
# server starts this script in the background. Pauses of 2 seconds between
# the stages are scaled by GDS_ADAPTER_PAUSE_SCALE (0 to 1). Test aids:
# while /var/cards/faults/mp-update-hold exists the update waits after its
# first stage (at most a minute); /var/cards/faults/mp-update makes it fail
# there (its first line is the reason). When the image disappears before
# the image is written (a cancellation removes it), the update stops with
# status cancelled. See docs/simulator.md.
ROOT=${GDS_ROOT:-}
CARDS=$ROOT/var/cards
slot=$1 interface=$2 mac=$3 image=$4
exec < /dev/null > /dev/null 2>&1
printf 'mp-update.sh %s\n' "$*" >> "$CARDS/commands.log"
case "$slot" in ''|*[!0-9]*) exit 2 ;; esac
base=$CARDS/$slot
[ -f "$base/card" ] || exit 2

kv() {
  [ -f "$1" ] && awk -v k="$2" 'index($0, k ":") == 1 { v = substr($0, length(k) + 2); sub(/^ /, "", v); print v; exit }' "$1"
}

status() { # status progress last-update
  printf 'update-status: %s\nupdate-progress: %s\nlast-update: %s\n' "$1" "$2" "$3" > "$base/fwstatus.tmp.$$" &&
    mv "$base/fwstatus.tmp.$$" "$base/fwstatus"
}

pause() {
  sleep "$(awk -v s="$1" -v f="${GDS_ADAPTER_PAUSE_SCALE:-1}" 'BEGIN { f += 0; if (f < 0 || f > 1) f = 1; printf "%.3f", s * f }')"
}

present() {
  [ -f "$image" ] || { status cancelled 0 cancelled; exit 1; }
}

if [ "$(kv "$base/card" virtual-eth-if)" != "$interface" ] || [ "$(kv "$base/card" mac)" != "$mac" ]; then
  status failed 0 "failed, no adapter answers at $interface $mac"
  exit 1
fi
[ -f "$image" ] || { status failed 0 "failed, image not found"; exit 1; }
version=$(kv "$image" version)
case "$version" in
  ''|*[!A-Za-z0-9.\(\)_-]*) status failed 0 "failed, invalid image"; exit 1 ;;
esac
status in-progress 10 none
n=0
while [ -f "$CARDS/faults/mp-update-hold" ] && [ $n -lt 600 ]; do
  sleep 0.1
  n=$((n + 1))
done
if [ -f "$CARDS/faults/mp-update" ]; then
  reason=$(head -n 1 "$CARDS/faults/mp-update")
  status failed 10 "failed, ${reason:-simulated fault}"
  exit 1
fi
pause 2
present
status in-progress 40 none
pause 2
present
status in-progress 80 none
# the backup slot: the first image that is not running (or a new one)
id=
for f in $(ls "$base/firmware" 2>/dev/null | sort -n); do
  [ "$(kv "$base/firmware/$f" state)" = running ] || { id=$f; break; }
done
[ -n "$id" ] || id=$(($(ls "$base/firmware" 2>/dev/null | sort -n | tail -n 1) + 1))
printf 'fw-id: %s\nversion: %s\nstate: backup\n' "$id" "$version" > "$base/firmware/$id"
pause 1
status completed 100 "updated to $version"
