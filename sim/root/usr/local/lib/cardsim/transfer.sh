# Configuration export and import and firmware activation of the simulated
# cards: the management-processor tool's commands vorn_vniccfg_export FILE,
# vorn_vniccfg_import FILE and fwactivate ID. Sourced by cardsim.sh (its
# helpers kv, setkv and fail are used); see docs/simulator.md.
#
# A configuration file is the card's adapter parameters and the files of its
# vNICs, uplinks and port profiles, each between <file path="..."> and
# </file>, its lines as in the model with &, < and > escaped:
#
#   <?xml version="1.0"?>
#   <kor-config card-type="HVC-1455">
#   <file path="card">
#   fip-mode: enabled
#   </file>
#   <file path="vnics/eth0/vnic">
#   ...
#   </kor-config>

KOR_PARAMS='fip-mode|vntag-mode|lldp|portchannel|passthrough|pts-enic-count'

kor_export() { # base file
  [ -n "$2" ] || fail "no configuration file given"
  tmp="$2.export.$$"
  {
    echo '<?xml version="1.0"?>'
    printf '<kor-config card-type="%s">\n' "$(kv "$1/card" card-type)"
    echo '<file path="card">'
    grep -E "^($KOR_PARAMS):" "$1/card"
    echo '</file>'
    for f in $(cd "$1" && find vnics uplinks portprofiles -type f 2>/dev/null | sort); do
      printf '<file path="%s">\n' "$f"
      sed 's/&/\&amp;/g; s/</\&lt;/g; s/>/\&gt;/g' "$1/$f"
      echo '</file>'
    done
    echo '</kor-config>'
  } > "$tmp" 2>/dev/null && mv "$tmp" "$2" 2>/dev/null || { rm -f "$tmp"; fail "cannot write $2"; }
}

kor_import() { # base file
  [ -f "$2" ] || fail "configuration file $2 not found"
  stage="$1/.import.$$"
  rm -rf "$stage"
  mkdir -p "$stage"
  # Only the card's own files: a path outside them makes the file invalid.
  awk -v dir="$stage" '
    NR == 1 { if ($0 !~ /^<\?xml /) { bad = 1; exit } next }
    /^<kor-config( |>)/ && !root { root = 1; next }
    $0 == "</kor-config>" && root && out == "" { done = 1; next }
    /^<file path="[^"]*">$/ && root && !done && out == "" {
      p = substr($0, 13, length($0) - 14)
      if (p != "card" && p !~ /^vnics\/[A-Za-z0-9_][A-Za-z0-9_.-]*\/(vnic|iscsi|usnic|boot|perbi)$/ &&
          p !~ /^uplinks\/[0-9]+$/ && p !~ /^portprofiles\/[0-9]+\/[A-Za-z0-9_][A-Za-z0-9_.-]*$/) { bad = 1; exit }
      out = dir "/" p
      d = out
      sub(/\/[^\/]*$/, "", d)
      system("mkdir -p \"" d "\"")
      printf "" > out
      next
    }
    $0 == "</file>" && out != "" { close(out); out = ""; next }
    out != "" { l = $0; gsub(/&lt;/, "<", l); gsub(/&gt;/, ">", l); gsub(/&amp;/, "\\&", l); print l > out; next }
    { bad = 1; exit }
    END { exit (bad || !done) ? 1 : 0 }
  ' "$2" || { rm -rf "$stage"; fail "invalid configuration file"; }
  if [ -f "$stage/card" ]; then
    grep -E "^($KOR_PARAMS): " "$stage/card" | while IFS= read -r line; do
      setkv "$1/card" "${line%%:*}" "${line#*: }"
    done
  fi
  for d in vnics uplinks portprofiles; do
    rm -rf "${1:?}/$d"
    if [ -d "$stage/$d" ]; then mv "$stage/$d" "$1/$d"; else mkdir -p "$1/$d"; fi
  done
  rm -rf "$stage"
}

kor_activate() { # base id
  case "$2" in ''|*[!0-9]*) fail "invalid firmware id $2" ;; esac
  [ -f "$1/firmware/$2" ] || fail "firmware image $2 not found"
  for f in "$1"/firmware/*; do
    if [ "${f##*/}" = "$2" ]; then setkv "$f" state running; else setkv "$f" state backup; fi
  done
  setkv "$1/card" current-fw-version "$(kv "$1/firmware/$2" version)"
}

kor_transfer() { # command base argument
  case "$1" in
    vorn_vniccfg_export) kor_export "$2" "$3" ;;
    vorn_vniccfg_import) kor_import "$2" "$3" ;;
    fwactivate) kor_activate "$2" "$3" ;;
  esac
}
