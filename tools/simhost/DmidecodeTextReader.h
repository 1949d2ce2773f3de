// DmidecodeTextReader: reads the text `dmidecode` prints (all records or some
// types, as people paste it: tabs or blanks for indent, CR line ends) into a
// HostInventory. Untrusted input: records it cannot read are skipped with a
// warning naming the handle. Stateless.
#pragma once

#include <string>

#include "HostInventory.h"

class DmidecodeTextReader {
public:
    // False (with a warning) when the text holds no "Handle 0x..., DMI type"
    // line at all.
    static bool read(const std::string& text, HostInventory& host);
};
