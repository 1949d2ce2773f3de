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

# --- vNIC, iSCSI boot, usNIC and boot-table writes ----------------------------
# vnic_write COMMAND ARGS...: the management-processor tool's vNIC commands
# on card $slot ($base). Properties come as "name value " lines from the
# property file named last, or from standard input (the boot-table change).
# Every change is made in a scratch copy and moved into place whole, so a
# refused property leaves the card as it was.
vnic_write() {
  vw_command=$1
  shift
  tmp="$base/.vnicwrite.$$"
  trap 'rm -f "$tmp" "$tmp.new"' EXIT
  case "$vw_command" in
    vorn_list_iscsi_bootable_vnics)
      echo "---"
      for n in $(vnics "$slot"); do
        [ -f "$base/vnics/$n/iscsi" ] && echo "$n"
      done
      echo "..."
      return 0 ;;
    vorn_add_vnic)
      type=$1 name=$2
      vnic_type_ok "$type"
      check_name "$name" vnic
      d="$base/vnics/$name"
      [ -e "$d" ] && fail "vnic $name already exists"
      [ "$(ls "$base/vnics" | wc -l)" -lt 16 ] || fail "at most 16 vnics per adapter"
      vnic_props "$3"
      n=$(ls "$base/vnics" | wc -l)
      order=$(for f in "$base"/vnics/*/vnic; do kv "$f" order; done | awk -F. '{ if ($1 + 0 > m) m = $1 + 0 } END { print m + 1 ".0" }')
      mac=$(kv "$base/card" mac)
      own=$(printf '%s:%02x' "${mac%:*}" $((64 + n)))
      if [ "$type" = eth ]; then
        printf 'name: %s\ntype: eth\norder: %s\nmac: %s\nmtu: 1500\nvlan: none\ncos: 0\nuplink: 0\nchannel: 0\npts: no\nboot: disabled\niscsi-boot: disabled\n' "$name" "$order" "$own" > "$tmp.new"
      else
        printf 'name: %s\ntype: fc\norder: %s\nwwnn: 10:00:%s\nwwpn: 20:00:%s\nuplink: 0\nboot: disabled\npersistent-lun-binding: disabled\n' "$name" "$order" "$own" "$own" > "$tmp.new"
      fi
      vnic_apply "$tmp.new"
      mkdir -p "$d" && mv "$tmp.new" "$d/vnic"
      return 0 ;;
    vorn_modify_vnic)
      type=$1 name=$2
      vnic_type_ok "$type"
      vnic_dir "$name"
      [ "$(kv "$d/vnic" type)" = "$type" ] || fail "vnic $name is not of type $type"
      vnic_props "$3"
      op=$(awk '$1 == "boot-table-op" { print $2; exit }' "$tmp")
      if [ -n "$op" ]; then
        [ "$type" = fc ] || fail "only a vHBA has a boot table"
        boot_table_change "$d/boot" "$op"
      else
        cp "$d/vnic" "$tmp.new"
        vnic_apply "$tmp.new"
        mv "$tmp.new" "$d/vnic"
      fi
      return 0 ;;
    vorn_set_iscsiboot_params)
      vnic_dir "$1"
      [ "$(kv "$d/vnic" type)" = eth ] || fail "vnic $1 is not an Ethernet vnic"
      vnic_props "$2"
      if [ -f "$d/iscsi" ]; then
        cp "$d/iscsi" "$tmp.new"
      else
        [ "$(ls "$base"/vnics/*/iscsi 2>/dev/null | wc -l)" -lt 2 ] || fail "at most two vnics boot from iSCSI"
        printf 'iscsi-boot: enabled\ninitiator-priority: primary\n' > "$tmp.new"
      fi
      vnic_apply "$tmp.new"
      case "$(kv "$tmp.new" initiator-priority)" in primary|secondary) ;; *) fail "initiator-priority is primary or secondary" ;; esac
      mv "$tmp.new" "$d/iscsi"
      setkv "$d/vnic" iscsi-boot enabled
      return 0 ;;
    vorn_delete_iscsiboot_config)
      vnic_dir "$1"
      [ -f "$d/iscsi" ] || fail "iSCSI boot is not configured on vnic $1"
      rm -f "$d/iscsi"
      setkv "$d/vnic" iscsi-boot disabled
      return 0 ;;
    vorn_set_usnic_params)
      vnic_dir "$1"
      [ "$(kv "$d/vnic" type)" = eth ] || fail "vnic $1 is not an Ethernet vnic"
      case "$2" in ''|*[!0-9]*) fail "invalid usNIC count $2" ;; esac
      [ "$2" -le 225 ] || fail "at most 225 usNIC interfaces"
      vnic_props "$3"
      if [ -f "$d/usnic" ]; then cp "$d/usnic" "$tmp.new"; else printf 'transmit-queue-count: 1\nreceive-queue-count: 1\n' > "$tmp.new"; fi
      setkv "$tmp.new" usnic-count "$2"
      vnic_apply "$tmp.new"
      mv "$tmp.new" "$d/usnic"
      return 0 ;;
  esac
  fail "unknown command $vw_command" 2
}

vnic_type_ok() { case "$1" in eth|fc) ;; *) fail "invalid vnic type $1" ;; esac; }

# d: the folder of the existing vNIC NAME of this card.
vnic_dir() {
  check_name "$1" vnic
  [ -f "$base/vnics/$1/vnic" ] || fail "vnic $1 not found"
  d="$base/vnics/$1"
}

# The property lines of FILE (standard input when FILE is empty) as "name
# value" lines in $tmp; a property name is lower-case letters, digits and
# "-", a value one word of plain characters.
vnic_props() {
  if [ -n "$1" ]; then
    [ -f "$1" ] || fail "cannot read property file $1"
    cat "$1"
  else
    cat
  fi | awk 'NF { print $1 " " $2 }' > "$tmp"
  while read -r key value; do
    case "$key" in ''|-*|*[!a-z0-9-]*) fail "invalid property name $key" ;; esac
    case "$value" in *[!A-Za-z0-9_.:,/@%+=-]*) fail "invalid value for $key" ;; esac
  done < "$tmp"
}

# Sets every property of $tmp in FILE; name and type never change.
vnic_apply() {
  while read -r key value; do
    case "$key" in
      name|type) fail "property $key cannot be changed" ;;
      boot-table-op|boot-entry) ;;
      *) setkv "$1" "$key" "$value" ;;
    esac
  done < "$tmp"
}

# A boot-table change of the vHBA's BOOT file: OP create, modify or delete
# of the entry named by "boot-entry"; create needs the target WWPN and LUN.
boot_table_change() { # boot-file op
  entry=$(awk '$1 == "boot-entry" { print $2; exit }' "$tmp")
  case "$entry" in ''|*[!0-9]*) fail "invalid boot entry $entry" ;; esac
  [ -f "$1" ] || : > "$1"
  exists=no
  grep -qx "boot-entry: $entry" "$1" && exists=yes
  case "$2" in
    create)
      [ $exists = no ] || fail "boot entry $entry already exists"
      [ "$(grep -c '^boot-entry:' "$1")" -lt 4 ] || fail "at most 4 boot entries"
      for k in boot-target-wwpn boot-lun-id; do
        grep -q "^$k " "$tmp" || fail "$k missing"
      done ;;
    modify|delete) [ $exists = yes ] || fail "boot entry $entry not found" ;;
    *) fail "invalid boot table operation $2" ;;
  esac
  while read -r key value; do
    case "$key" in
      boot-table-op|boot-entry) ;;
      boot-target-wwpn) echo "$value" | grep -Eq '^([0-9A-Fa-f]{2}:){7}[0-9A-Fa-f]{2}$' || fail "invalid boot-target-wwpn $value" ;;
      boot-lun-id) case "$value" in ''|*[!0-9]*) fail "invalid boot-lun-id $value" ;; esac ;;
      *) fail "unknown boot table property $key" ;;
    esac
  done < "$tmp"
  awk -v op="$2" -v e="$entry" -v props="$tmp" '
    BEGIN {
      cur = "none"  # before the first entry (an unset variable would equal entry 0)
      while ((getline l < props) > 0) {
        split(l, f, " ")
        if (f[1] == "boot-table-op" || f[1] == "boot-entry") continue
        k[++nk] = f[1]; v[f[1]] = f[2]
      }
    }
    function rest(   i) { for (i = 1; i <= nk; i++) if (!(k[i] in seen)) print k[i] ": " v[k[i]] }
    /^boot-entry:/ { if (cur == e && op == "modify") rest(); cur = substr($0, 13) }
    cur == e && op == "delete" { next }
    cur == e && op == "modify" {
      i = index($0, ":"); key = substr($0, 1, i - 1)
      if (key in v) { print key ": " v[key]; seen[key] = 1; next }
    }
    { print }
    END {
      if (cur == e && op == "modify") rest()
      if (op == "create") { print "boot-entry: " e; rest() }
    }' "$1" > "$tmp.new" && mv "$tmp.new" "$1"
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
    vorn_add_vnic|vorn_modify_vnic|vorn_set_iscsiboot_params|vorn_delete_iscsiboot_config|vorn_set_usnic_params|vorn_list_iscsi_bootable_vnics)
      vnic_write "$command" "$@"
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
