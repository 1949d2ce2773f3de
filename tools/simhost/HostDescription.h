// HostDescription: writes a HostInventory as the SMBIOS stand-in's host
// description (/var/smbios/host.json): system, processors, DIMMs with the
// memory summary computed from them, PCI adapters, temperature records per
// installed DIMM and processor. Sections the import has no data for (boot
// order, on-board MAC addresses, board statistics) come from a base
// description when one is given. Stateless.
#pragma once

#include <string>

#include "HostInventory.h"

class HostDescription {
public:
    // The description as JSON text. `base` (may be empty) is a description
    // whose other sections are kept; its "version" is raised by one, so a
    // running server drops its inventory cache. False when `base` is not a
    // JSON object.
    static bool write(const HostInventory& host, const std::string& base, std::string& json);
};
