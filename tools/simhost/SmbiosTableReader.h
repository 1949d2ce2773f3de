// SmbiosTableReader: reads a raw SMBIOS dump (the file `dmidecode
// --dump-bin` writes: a 2.x, 3.x or legacy entry point, then the table at the
// offset it names) into a HostInventory, decoding values the way dmidecode
// prints them. Input is untrusted: a truncated or hostile file never reads
// out of bounds; broken records are skipped with a warning. Stateless.
#pragma once

#include <string>

#include "HostInventory.h"

class SmbiosTableReader {
public:
    // False (with a warning saying why) when the bytes hold no entry point or
    // no table; a table that breaks off yields the records before the break.
    static bool read(const std::string& bytes, HostInventory& host);
};
