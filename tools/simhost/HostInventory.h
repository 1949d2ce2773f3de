// HostInventory: what an SMBIOS import takes from a real host (system
// identity, processors, memory devices, PCI slots in use and on-board
// devices), decoded into the texts the host description holds. Plain data:
// filled by one reader on one thread, then read by HostDescription.
#pragma once

#include <string>
#include <vector>

struct HostInventory {
    struct System {
        std::string manufacturer;
        std::string product;
        std::string serial;
        std::string uuid;  // 8-4-4-4-12 hex digits, "" when the host has none
    };
    struct Processor {
        std::string socket;
        std::string manufacturer;
        std::string family;
        std::string serial;
        std::string version;
        std::string status;     // "Populated, Enabled", "Unpopulated", ...
        std::string signature;  // "" when the family has none
        unsigned threads = 0;   // 0: not reported
        unsigned cores = 0;
        unsigned coresEnabled = 0;
        unsigned speed = 0;  // MHz, 0: unknown
        unsigned maxSpeed = 0;
    };
    struct MemoryDevice {
        std::string locator;
        std::string bank;
        bool installed = false;
        long long sizeMB = -1;   // -1: unknown size
        unsigned speed = 0;      // MT/s, 0: unknown
        std::string type;        // "DDR4"
        std::string typeDetail;  // "Synchronous Registered (Buffered)"
        std::string manufacturer;
        std::string serial;
        std::string assetTag;
        std::string partNumber;
        unsigned dataWidth = 0;  // bits, 0: unknown
    };
    // A PCI slot in use (id: the slot number) or an on-board device (id empty,
    // kind: its device type, "Ethernet").
    struct Device {
        std::string designation;
        std::string id;
        std::string kind;
    };

    System system;
    std::vector<Processor> processors;
    std::vector<MemoryDevice> memory;
    std::vector<Device> slots;
    std::vector<Device> onboard;
    // One line per record skipped or table problem, naming the handle.
    std::vector<std::string> warnings;
};
