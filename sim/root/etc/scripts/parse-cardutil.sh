#!/bin/sh
# Reads the card utility's listing on standard input and prints one line
# "adapters:ethernet host interfaces:fibre channel host interfaces".
awk -F': ' '
  /^---/ { cards++ }
  $1 == "num-eth-host-ifs" { eth += $2 }
  $1 == "num-fc-host-ifs" { fc += $2 }
  END { printf "%d:%d:%d\n", cards, eth, fc }'
