#!/bin/sh
# Simulated upload of the collected inventory: records what it would send.
# Every run appends a line "upload" and then each argument on its own line
# to "/var/inventory-upload.log" under the platform root ($GDS_ROOT).
log="${GDS_ROOT:-}/var/inventory-upload.log"
{
    echo "upload"
    for argument in "$@"; do
        printf '  %s\n' "$argument"
    done
} >> "$log"
