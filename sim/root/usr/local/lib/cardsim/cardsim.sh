#!/bin/sh
# The simulated virtual interface cards: one model under the platform root
# (GDS_ROOT), read and changed by the simulated card utility ("cardutil") and
# management-processor tool ("mptool"). See docs/simulator.md.
#
#   /var/cards/<slot>/card                  the card: "key: value" lines
#   /var/cards/<slot>/vnics/<name>/vnic     one vNIC (also iscsi, usnic, boot, perbi)
#   /var/cards/<slot>/uplinks/<id>          one uplink (an-* and connector-* keys too)
#   /var/cards/<slot>/portprofiles/<uplink>/<name>
#   /var/cards/<slot>/firmware/<id>         one firmware image
#   /var/cards/<slot>/fwstatus              the update status
#   /var/cards/faults/<tool><command>       makes a command fail (see the docs)
#   /var/cards/commands.log                 every command run, one line each
#
# Output is the tools' YAML-like form: "---" opens a document, "key: value"
# lines, "..." ends; failures print "error: <text>" and exit non-zero.
# POSIX sh and awk only: a tool run costs a few milliseconds.

CARDS="${GDS_ROOT:-}/var/cards"
TOOL=$1
shift

fail() { # text [status]
  echo "error: $1"
  exit "${2:-1}"
}

# The value of KEY in FILE ("key: value"), empty when missing.
kv() {
  [ -f "$1" ] && awk -v k="$2" 'index($0, k ":") == 1 { v = substr($0, length(k) + 2); sub(/^ /, "", v); print v; exit }' "$1"
}

# Sets KEY to VALUE in FILE (added when missing); the file is replaced whole.
setkv() {
  awk -v k="$2" -v v="$3" 'index($0, k ":") == 1 { if (!done) print k ": " v; done = 1; next } { print } END { if (!done) print k ": " v }' "$1" > "$1.tmp.$$" && mv "$1.tmp.$$" "$1"
}

# A name of a vNIC, uplink or port profile: letters, digits, "_", "." and "-",
# not beginning with "." or "-", at most 32 characters.
check_name() {
  case "$1" in
    ''|.*|-*|*[!A-Za-z0-9_.-]*) fail "invalid $2 name" ;;
  esac
  [ ${#1} -le 32 ] || fail "invalid $2 name"
}

slots() {
  ls "$CARDS" 2>/dev/null | grep -E '^[0-9]+$' | sort -n | while read -r s; do
    [ -f "$CARDS/$s/card" ] && echo "$s"
  done
}

# vNIC names of SLOT in their order (the "order" key, then the name).
vnics() {
  for f in "$CARDS/$1"/vnics/*/vnic; do
    [ -f "$f" ] || continue
    n=${f%/vnic}
    echo "$(kv "$f" order) ${n##*/}"
  done | sort -k1,1n -k2 | awk '{ print $2 }'
}

doc() { # file [awk filter on $0]
  echo "---"
  [ -f "$1" ] && awk "${2:-1}" "$1"
}

# Repeated records of FILE, a document per record starting at KEY.
records() {
  [ -f "$1" ] && awk -v k="$2" 'index($0, k ":") == 1 { print "---" } { print }' "$1"
}

fault() { # name
  f="$CARDS/faults/$1"
  [ -f "$f" ] || return 0
  status=1
  while IFS= read -r line || [ -n "$line" ]; do
    case "$line" in
      exit:\ *) status=${line#exit: } ;;
      sleep:\ *) sleep "${line#sleep: }" ;;
      *) printf '%s\n' "$line" ;;
    esac
  done < "$f"
  exit "$status"
}

printf '%s\n' "$TOOL $*" >> "$CARDS/commands.log" 2>/dev/null

# --- the card utility --------------------------------------------------------
cardutil() {
  option=$1
  [ -n "$option" ] || fail "usage: cardutil -L | -l SLOT | -P SLOT | -a SLOT | -i SLOT" 2
  fault "cardutil$option"
  if [ "$option" = -L ]; then
    for s in $(slots); do
      # one awk per card: the card file, then its vNIC files for the counts
      cat "$CARDS/$s/card" "$CARDS/$s"/vnics/*/vnic 2>/dev/null | awk -v slot="$s" '
        { i = index($0, ":"); if (!i) next; k = substr($0, 1, i - 1); v = substr($0, i + 1); sub(/^ /, "", v) }
        k == "name" { card = 0 }
        NR == 1 || card != 0 { card = 1; if (!(k in c)) c[k] = v; next }
        k == "type" && v == "eth" { eth++ }
        k == "type" && v == "fc" { fc++ }
        END {
          print "---"; print "slot-number: " slot
          print (c["family"] == "" ? "vorn" : c["family"]) "-mac: " c["mac"]
          n = split("virtual-eth-if card-type hw-revision standby-power actions-blocked", keys, " ")
          for (j = 1; j <= n; j++) print keys[j] ": " c[keys[j]]
          print "num-eth-host-ifs: " eth + 0; print "num-fc-host-ifs: " fc + 0
        }'
    done
    echo "..."
    return 0
  fi
  slot=$2
  case "$slot" in ''|*[!0-9]*) fail "no card in slot $slot" ;; esac
  c="$CARDS/$slot/card"
  [ -f "$c" ] || fail "no card in slot $slot"
  family=$(kv "$c" family)
  case "$option" in
    -l)
      echo "---"
      echo "slot-number: $slot"
      echo "card-type: $(kv "$c" card-type)"
      echo "asic-name: ${family:-vorn}"
      echo "${family:-vorn}-mac: $(kv "$c" mac)"
      for k in virtual-eth-if serial-number description; do
        echo "$k: $(kv "$c" "$k")"
      done
      echo "..."
      ;;
    -P)
      echo "PCIe slot: $slot"
      echo "PCIe link speed:   $(kv "$c" pcie-link-speed)"
      echo "PCIe link width:   $(kv "$c" pcie-link-width)"
      ;;
    -a) setkv "$c" standby-power enabled ;;
    -i) setkv "$c" standby-power disabled ;;
    *) fail "unknown option $option" 2 ;;
  esac
}

# --- the management-processor tool --------------------------------------------
mptool() {
  [ "$1" = -i ] && [ $# -ge 4 ] || fail "usage: mptool -i INTERFACE MAC COMMAND [ARGS]" 2
  interface=$2
  mac=$3
  command=$4
  shift 4
  fault "mptool-$command"
  slot=
  for s in $(slots); do
    if [ "$(kv "$CARDS/$s/card" virtual-eth-if)" = "$interface" ] && [ "$(kv "$CARDS/$s/card" mac)" = "$mac" ]; then
      slot=$s
      break
    fi
  done
  [ -n "$slot" ] || fail "no adapter answers at $interface $mac"
  base="$CARDS/$slot"
  [ "$(kv "$base/card" actions-blocked)" = yes ] && fail "card actions are blocked"
  # the arguments without the output-format words
  a1= a2= a3= display=all next=
  for w in "$@"; do
    case "$w" in
      yaml|--detail) continue ;;
      --display) next=display; continue ;;
    esac
    if [ "$next" = display ]; then display=$w; next=; continue; fi
    if [ -z "$a1" ]; then a1=$w; elif [ -z "$a2" ]; then a2=$w; elif [ -z "$a3" ]; then a3=$w; fi
  done
  case "$command" in
    vorn_getadapter)
      doc "$base/card" '$1 !~ /^(family|type-code|active|temperature-limit|pts-enic-count|mac):/' ;;
    fwlist)
      for f in $(ls "$base/firmware" 2>/dev/null | sort -n); do doc "$base/firmware/$f"; done ;;
    fwstatus)
      doc "$base/fwstatus" ;;
    vorn_listethvnics|vorn_listptsethvnics|vorn_listfcvnics)
      want=eth
      [ "$command" = vorn_listfcvnics ] && want=fc
      for n in $(vnics "$slot"); do
        v="$base/vnics/$n/vnic"
        [ "$(kv "$v" type)" = "$want" ] || continue
        [ "$command" = vorn_listptsethvnics ] && [ "$(kv "$v" pts)" != yes ] && continue
        doc "$v"
      done ;;
    vorn_get_iscsiboot_params|vorn_get_usnic_params)
      check_name "$a1" vnic
      [ -f "$base/vnics/$a1/vnic" ] || fail "vnic $a1 not found"
      part=usnic
      [ "$command" = vorn_get_iscsiboot_params ] && part=iscsi
      echo "---"
      echo "name: $a1"
      if [ -f "$base/vnics/$a1/$part" ]; then cat "$base/vnics/$a1/$part"; else echo "$part-configured: no"; fi ;;
    vorn_getvnic)
      check_name "$a1" vnic
      [ -f "$base/vnics/$a1/vnic" ] || fail "vnic $a1 not found"
      case "$display" in
        all) doc "$base/vnics/$a1/vnic" ;;
        boot) records "$base/vnics/$a1/boot" boot-entry ;;
        perbi) records "$base/vnics/$a1/perbi" perbi-entry ;;
        *) fail "unknown display $display" ;;
      esac ;;
    vorn_getuplink|vorn_get_an_status|vorn_getconnector)
      which=${a1:-all}
      if [ "$which" = all ]; then
        ids=$(ls "$base/uplinks" 2>/dev/null | sort -n)
      else
        check_name "$which" uplink
        [ -f "$base/uplinks/$which" ] || fail "uplink $which not found"
        ids=$which
      fi
      for u in $ids; do
        case "$command" in
          vorn_getuplink) doc "$base/uplinks/$u" '$1 !~ /^(an|connector)-/' ;;
          vorn_get_an_status) echo "---"; echo "uplink-id: $u"; awk '/^an-/' "$base/uplinks/$u" ;;
          *) echo "---"; echo "uplink-id: $u"; awk '/^connector-/' "$base/uplinks/$u" ;;
        esac
      done ;;
    vorn_listportprofiles)
      check_name "$a1" uplink
      for p in $(ls "$base/portprofiles/$a1" 2>/dev/null); do doc "$base/portprofiles/$a1/$p"; done ;;
    vorn_portprofileexists)
      check_name "$a1" uplink
      check_name "$a2" "port profile"
      exists=no
      [ -f "$base/portprofiles/$a1/$a2" ] && exists=yes
      printf -- '---\nuplink-id: %s\nport-profile: %s\nport-profile-exists: %s\n' "$a1" "$a2" "$exists" ;;
    vorn_vnic_niv_chnl_status)
      check_name "$a1" vnic
      [ -f "$base/vnics/$a1/vnic" ] || fail "vnic $a1 not found"
      state=down
      [ "$(kv "$base/vnics/$a1/vnic" channel)" = "$a2" ] && [ "$(kv "$base/vnics/$a1/vnic" uplink)" = "$a3" ] && state=up
      printf -- '---\nvnic-name: %s\nchannel-number: %s\nuplink-id: %s\nchannel-status: %s\n' "$a1" "$a2" "$a3" "$state" ;;
    vorn_bootable_vnics)
      count=0
      for n in $(vnics "$slot"); do
        [ "$(kv "$base/vnics/$n/vnic" boot)" = enabled ] && count=$((count + 1))
      done
      printf -- '---\nnum-bootable-vnics: %d\n' "$count" ;;
    vorn_get_pts_eth_count)
      printf -- '---\npts-eth-count: %s\nmax-pts-eth-count: 112\n' "$(kv "$base/card" pts-enic-count)" ;;
    # --- writes ---
    vorn_delete_vnic)
      check_name "$a1" vnic
      [ -f "$base/vnics/$a1/vnic" ] || fail "vnic $a1 not found"
      rm -rf "${base:?}/vnics/$a1"
      return 0 ;;
    ping)
      # clears the persistent bindings of every vHBA
      rm -f "$base"/vnics/*/perbi
      return 0 ;;
    restoredefconfig)
      for n in $(vnics "$slot"); do
        case "$n" in eth0|eth1|fc0|fc1) ;; *) rm -rf "${base:?}/vnics/$n" ;; esac
      done
      setkv "$base/card" description ""
      setkv "$base/card" pts-enic-count 0
      return 0 ;;
    vorn_setadapter_param)
      # "name value" lines on standard input
      while read -r key value rest; do
        case "$key" in
          fip-mode|vntag-mode|lldp|portchannel|passthrough) setkv "$base/card" "$key" "$value" ;;
          '') ;;
          *) fail "unknown adapter parameter $key" ;;
        esac
      done
      return 0 ;;
    vorn_setuplink_speed)
      check_name "$a1" uplink
      [ -f "$base/uplinks/$a1" ] || fail "uplink $a1 not found"
      case "$a2" in Auto|1Gbps|10Gbps|4x10Gbps|40Gbps) ;; *) fail "invalid speed $a2" ;; esac
      if [ -n "$a3" ]; then
        case "$a3" in AN_on|AN_off) ;; *) fail "invalid link training $a3" ;; esac
        setkv "$base/uplinks/$a1" an-link-training "${a3#AN_}"
      else
        setkv "$base/uplinks/$a1" admin-speed "$a2"
      fi
      return 0 ;;
    vorn_configure_pts_eths)
      case "$a1" in ''|*[!0-9]*) fail "invalid count" ;; esac
      [ "$a1" -le 112 ] || fail "at most 112 VM FEX interfaces"
      setkv "$base/card" pts-enic-count "$a1"
      return 0 ;;
    vorn_vniccfg_export|vorn_vniccfg_import|fwactivate)
      . "${GDS_ROOT:-}/usr/local/lib/cardsim/transfer.sh"
      kor_transfer "$command" "$base" "$a1"
      return 0 ;;
    *)
      fail "unknown command $command" 2 ;;
  esac
  echo "..."
}

case "$TOOL" in
  cardutil) cardutil "$@" ;;
  mptool) mptool "$@" ;;
  *) fail "unknown tool $TOOL" 2 ;;
esac
