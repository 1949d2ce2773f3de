// The SMBIOS import's readers on hostile bytes: a raw table (entry point,
// records, strings) and dmidecode text. Neither may read out of bounds,
// crash or leak, and whatever they took must write as a host description.
#include <cstddef>
#include <cstdint>
#include <string>

#include "DmidecodeTextReader.h"
#include "HostDescription.h"
#include "SmbiosTableReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    std::string json;
    HostInventory fromDump;
    SmbiosTableReader::read(bytes, fromDump);
    HostDescription::write(fromDump, "", json);
    HostInventory fromText;
    DmidecodeTextReader::read(bytes, fromText);
    HostDescription::write(fromText, "{\"version\": 255}", json);
    return 0;
}
