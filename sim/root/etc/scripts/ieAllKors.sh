#!/bin/sh
# The simulated configuration script for all adapters: exports the
# configuration of every simulated card into one file, or imports such a
# file, through the management-processor tool's vorn_vniccfg_export and
# vorn_vniccfg_import; with an address it moves the file to or from the
# remote server with the transfer client. Usage:
#
#   ieAllKors.sh -f FILE [-ip ADDRESS -protocol PROTOCOL
#                [-username USER -password PASSWORD]] export|import
#
# FILE is the local file, or with an address the remote path (the local
# working file is then /mnt/scratchpad/ie_config.xml). Progress goes to
# /var/ieAllKorStatus ("Export In Progress", "Export Completed",
# "Export Failed: <reason>", likewise Import), the allKORIEStatus read. The
# fault file /var/cards/faults/ieAllKors makes it fail (its first line is
# the reason). See docs/simulator.md.
ROOT=${GDS_ROOT:-}
CARDS=$ROOT/var/cards
WORK=$ROOT/mnt/scratchpad/ie_config.xml
STATUS=$ROOT/var/ieAllKorStatus
MPTOOL=$ROOT/opt/flash/halvric/bin/mptool
CURL=$ROOT/opt/flash/halvric/bin/curl

usage() {
  echo "usage: ieAllKors.sh -f FILE [-ip ADDRESS -protocol PROTOCOL [-username USER -password PASSWORD]] export|import" >&2
  exit 2
}

kv() {
  [ -f "$1" ] && awk -v k="$2" 'index($0, k ":") == 1 { v = substr($0, length(k) + 2); sub(/^ /, "", v); print v; exit }' "$1"
}

file= ip= protocol=tftp user= password=
while [ $# -gt 1 ]; do
  case "$1" in
    -f) file=$2 ;;
    -ip) ip=$2 ;;
    -protocol) protocol=$2 ;;
    -username) user=$2 ;;
    -password) password=$2 ;;
    *) usage ;;
  esac
  shift 2
done
case "$1" in
  export) word=Export ;;
  import) word=Import ;;
  *) usage ;;
esac
[ -n "$file" ] || usage
printf 'ieAllKors.sh %s %s\n' "$1" "${ip:+$protocol $ip $file}" >> "$CARDS/commands.log"

finish() {
  printf '%s %s\n' "$word" "$1" > "$STATUS"
  [ "$1" = Completed ]
  exit $?
}

# -o (download) or -T (upload) of the working file
transfer() {
  set -- "$1" "$WORK"
  case "$ip" in
    *:*) set -- "$@" "$protocol://[$ip]/$file" --globoff ;;
    *) set -- "$@" "$protocol://$ip/$file" ;;
  esac
  if [ "$protocol" != tftp ] && [ -n "$user$password" ]; then
    set -- "$@" -u "$user:$password"
  fi
  "$CURL" -S -s -f "$@" --connect-timeout 10 2>/dev/null
}

slots() {
  ls "$CARDS" 2>/dev/null | grep -E '^[0-9]+$' | sort -n
}

# mptool COMMAND FILE for the card in SLOT
card_tool() {
  c="$CARDS/$1/card"
  [ -f "$c" ] && "$MPTOOL" -i "$(kv "$c" virtual-eth-if)" "$(kv "$c" mac)" "$2" "$3" > /dev/null 2>&1
}

printf '%s In Progress\n' "$word" > "$STATUS"
if [ -f "$CARDS/faults/ieAllKors" ]; then
  reason=$(head -n 1 "$CARDS/faults/ieAllKors")
  finish "Failed: ${reason:-simulated fault}"
fi

if [ "$word" = Export ]; then
  all="$WORK.all.$$"
  printf '<?xml version="1.0"?>\n<kor-configs>\n' > "$all"
  for s in $(slots); do
    card_tool "$s" vorn_vniccfg_export "$WORK.$s" || { rm -f "$all" "$WORK.$s"; finish "Failed: slot $s"; }
    printf '<slot number="%s">\n' "$s" >> "$all"
    sed 1d "$WORK.$s" >> "$all"
    printf '</slot>\n' >> "$all"
    rm -f "$WORK.$s"
  done
  printf '</kor-configs>\n' >> "$all"
  if [ -n "$ip" ]; then
    mv "$all" "$WORK" && transfer -T || finish "Failed: transfer to $ip"
  else
    mv "$all" "$file" || { rm -f "$all"; finish "Failed: cannot write $file"; }
  fi
  finish Completed
fi

source=$file
if [ -n "$ip" ]; then
  transfer -o || finish "Failed: transfer from $ip"
  source=$WORK
fi
[ -f "$source" ] || finish "Failed: no configuration file"
found=$(awk '/^<slot number="[0-9]+">$/ { s = $0; gsub(/[^0-9]/, "", s); print s }' "$source")
[ -n "$found" ] || finish "Failed: invalid configuration file"
for s in $found; do
  awk -v s="$s" 'BEGIN { print "<?xml version=\"1.0\"?>" }
    $0 == "<slot number=\"" s "\">" { on = 1; next }
    on && $0 == "</slot>" { exit }
    on { print }' "$source" > "$WORK.$s"
  card_tool "$s" vorn_vniccfg_import "$WORK.$s"
  rc=$?
  rm -f "$WORK.$s"
  [ $rc -eq 0 ] || finish "Failed: slot $s"
done
finish Completed
