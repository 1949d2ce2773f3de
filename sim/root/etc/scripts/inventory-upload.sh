#!/bin/sh
# Simulated upload of the collected inventory: records what it would send.
# Every run appends a line "upload" and then each argument on its own line
# (indented by two blanks) to "/var/inventory-upload.log" under the platform
# root ($GDS_ROOT), in one write so readers never see half a record.
log="${GDS_ROOT:-}/var/inventory-upload.log"
record="upload
"
for argument in "$@"; do
    record="$record  $argument
"
done
printf '%s' "$record" >> "$log"
