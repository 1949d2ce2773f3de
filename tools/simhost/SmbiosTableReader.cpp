// Reads the SMBIOS structures the host description needs: system (type 1),
// processor (4), system slot (9), memory device (17), on-board device (41).
#include "SmbiosTableReader.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>

namespace {

unsigned u8(const std::string& b, size_t at)
{
    return static_cast<unsigned char>(b[at]);
}

unsigned u16(const std::string& b, size_t at)
{
    return u8(b, at) | u8(b, at + 1) << 8;
}

uint32_t u32(const std::string& b, size_t at)
{
    return static_cast<uint32_t>(u16(b, at)) | static_cast<uint32_t>(u16(b, at + 2)) << 16;
}

uint64_t u64(const std::string& b, size_t at)
{
    return static_cast<uint64_t>(u32(b, at)) | static_cast<uint64_t>(u32(b, at + 4)) << 32;
}

std::string hex4(unsigned handle)
{
    char text[8];
    snprintf(text, sizeof text, "0x%04X", handle & 0xffff);
    return text;
}

std::string trimmed(const std::string& s)
{
    size_t first = s.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return "";
    }
    return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

// One structure: its formatted part and its strings.
struct Record {
    unsigned type;
    unsigned length;
    unsigned handle;
    std::string data;  // the formatted part, `length` bytes
    std::vector<std::string> strings;

    unsigned byte(size_t at) const { return at < data.size() ? u8(data, at) : 0; }
    unsigned word(size_t at) const { return at + 1 < data.size() ? u16(data, at) : 0; }
    uint32_t dword(size_t at) const { return at + 3 < data.size() ? u32(data, at) : 0; }
    // String `byte(at)`, as dmidecode shows it: index 0 "Not Specified", an
    // index past the strings "<BAD INDEX>", unprintable bytes as ".".
    std::string text(size_t at) const
    {
        unsigned index = byte(at);
        if (index == 0) {
            return "Not Specified";
        }
        if (index > strings.size()) {
            return "<BAD INDEX>";
        }
        std::string s = strings[index - 1];
        for (char& c : s) {
            if (static_cast<unsigned char>(c) < 32 || c == 127) {
                c = '.';
            }
        }
        return trimmed(s);
    }
};

const std::map<unsigned, const char*>& familyNames()
{
    static const std::map<unsigned, const char*> names = {
#include "ProcessorFamilies.inc"
    };
    return names;
}

std::string processorFamily(const Record& r, unsigned code)
{
    if (code == 0xBE) {
        // One code for two families: the maker tells them apart.
        std::string maker = r.text(0x07);
        if (maker.find("Intel") != std::string::npos) {
            return "Core 2";
        }
        if (maker.find("AMD") != std::string::npos) {
            return "K7";
        }
    }
    auto it = familyNames().find(code);
    return it != familyNames().end() ? it->second : "<OUT OF SPEC>";
}

bool inRanges(unsigned code, std::initializer_list<std::pair<unsigned, unsigned>> ranges)
{
    for (const auto& r : ranges) {
        if (code >= r.first && code <= r.second) {
            return true;
        }
    }
    return false;
}

// The CPUID signature of the processor id, for the families whose id holds one.
std::string signature(unsigned family, uint32_t eax)
{
    char text[96] = "";
    if (inRanges(family, {{0x0B, 0x15},
                          {0x28, 0x2F},
                          {0xA1, 0xB3},
                          {0xB5, 0xB5},
                          {0xB9, 0xC7},
                          {0xCD, 0xCF},
                          {0xD2, 0xDB},
                          {0xDD, 0xE0}})) {
        snprintf(text, sizeof text, "Type %u, Family %u, Model %u, Stepping %u", (eax >> 12) & 0x3,
                 ((eax >> 20) & 0xFF) + ((eax >> 8) & 0x0F), ((eax >> 12) & 0xF0) + ((eax >> 4) & 0x0F), eax & 0xF);
    } else if (inRanges(family, {{0x18, 0x1D},
                                 {0x1F, 0x1F},
                                 {0x38, 0x3F},
                                 {0x46, 0x4F},
                                 {0x66, 0x6B},
                                 {0x83, 0x8F},
                                 {0xB6, 0xB7},
                                 {0xE4, 0xEF}})) {
        unsigned base = (eax >> 8) & 0xF;
        snprintf(text, sizeof text, "Family %u, Model %u, Stepping %u", base + (base == 0xF ? (eax >> 20) & 0xFF : 0),
                 ((eax >> 4) & 0xF) | (base == 0xF ? (eax >> 12) & 0xF0 : 0), eax & 0xF);
    } else if (inRanges(family, {{0x100, 0x101}, {0x118, 0x119}})) {
        snprintf(text, sizeof text, "Implementor 0x%02x, Variant 0x%x, Architecture %u, Part 0x%03x, Revision %u",
                 eax >> 24, (eax >> 20) & 0xF, (eax >> 16) & 0xF, (eax >> 4) & 0xFFF, eax & 0xF);
    }
    return text;
}

void readSystem(const Record& r, unsigned version, HostInventory& host)
{
    if (r.length < 0x08) {
        host.warnings.push_back("handle " + hex4(r.handle) + ": system record too short; skipped");
        return;
    }
    host.system.manufacturer = r.text(0x04);
    host.system.product = r.text(0x05);
    host.system.serial = r.text(0x07);
    host.system.uuid.clear();
    if (r.length < 0x19) {
        return;
    }
    unsigned char p[16];
    bool allZero = true;
    bool allOnes = true;
    for (int i = 0; i < 16; i++) {
        p[i] = static_cast<unsigned char>(r.byte(0x08 + i));
        allZero = allZero && p[i] == 0;
        allOnes = allOnes && p[i] == 0xFF;
    }
    if (allZero || allOnes) {
        return;  // "Not Settable" / "Not Present": no UUID to serve
    }
    // From SMBIOS 2.6 on the first three fields are little-endian.
    static const int kSwapped[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    char text[40];
    size_t at = 0;
    for (int i = 0; i < 16; i++) {
        int k = version >= 0x0206 ? kSwapped[i] : i;
        at += static_cast<size_t>(
            snprintf(text + at, sizeof text - at, "%s%02X", (i == 4 || i == 6 || i == 8 || i == 10) ? "-" : "", p[k]));
    }
    host.system.uuid = text;
}

void readProcessor(const Record& r, HostInventory& host)
{
    if (r.length < 0x1A) {
        host.warnings.push_back("handle " + hex4(r.handle) + ": processor record too short (" +
                                std::to_string(r.length) + " bytes); skipped");
        return;
    }
    HostInventory::Processor p;
    p.socket = r.text(0x04);
    unsigned family = r.byte(0x06);
    if (family == 0xFE && r.length >= 0x2A) {
        family = r.word(0x28);
    }
    p.family = processorFamily(r, family);
    p.manufacturer = r.text(0x07);
    p.signature = signature(family, r.dword(0x08));
    p.version = r.text(0x10);
    p.maxSpeed = r.word(0x14);
    p.speed = r.word(0x16);
    unsigned status = r.byte(0x18);
    static const char* const kStatus[8] = {"Unknown", "Enabled",       "Disabled By User", "Disabled By BIOS",
                                           "Idle",    "<OUT OF SPEC>", "<OUT OF SPEC>",    "Other"};
    p.status = (status & 0x40) != 0 ? std::string("Populated, ") + kStatus[status & 7] : "Unpopulated";
    p.serial = r.length >= 0x23 ? r.text(0x20) : "";
    if (r.length >= 0x28) {
        unsigned cores = r.byte(0x23);
        unsigned enabled = r.byte(0x24);
        unsigned threads = r.byte(0x25);
        p.cores = r.length >= 0x2C && cores == 0xFF ? r.word(0x2A) : cores;
        p.coresEnabled = r.length >= 0x2E && enabled == 0xFF ? r.word(0x2C) : enabled;
        p.threads = r.length >= 0x30 && threads == 0xFF ? r.word(0x2E) : threads;
    }
    host.processors.push_back(p);
}

bool pciSlotType(unsigned type)
{
    return inRanges(type, {{0x04, 0x06}, {0x0E, 0x13}, {0x1F, 0x23}, {0xA5, 0xBD}});
}

void readSlot(const Record& r, HostInventory& host)
{
    if (r.length < 0x0C) {
        host.warnings.push_back("handle " + hex4(r.handle) + ": slot record too short; skipped");
        return;
    }
    if (r.byte(0x07) != 0x04) {
        return;  // only slots "In Use" hold an adapter
    }
    HostInventory::Device d;
    d.designation = r.text(0x04);
    if (pciSlotType(r.byte(0x05))) {
        d.id = std::to_string(r.byte(0x09));
    }
    host.slots.push_back(d);
}

std::string memoryType(unsigned code)
{
    static const char* const kTypes[] = {"Other",
                                         "Unknown",
                                         "DRAM",
                                         "EDRAM",
                                         "VRAM",
                                         "SRAM",
                                         "RAM",
                                         "ROM",
                                         "Flash",
                                         "EEPROM",
                                         "FEPROM",
                                         "EPROM",
                                         "CDRAM",
                                         "3DRAM",
                                         "SDRAM",
                                         "SGRAM",
                                         "RDRAM",
                                         "DDR",
                                         "DDR2",
                                         "DDR2 FB-DIMM",
                                         "Reserved",
                                         "Reserved",
                                         "Reserved",
                                         "DDR3",
                                         "FBD2",
                                         "DDR4",
                                         "LPDDR",
                                         "LPDDR2",
                                         "LPDDR3",
                                         "LPDDR4",
                                         "Logical non-volatile device",
                                         "HBM",
                                         "HBM2",
                                         "DDR5",
                                         "LPDDR5"};
    if (code >= 1 && code <= sizeof kTypes / sizeof kTypes[0]) {
        return kTypes[code - 1];
    }
    return "<OUT OF SPEC>";
}

std::string typeDetail(unsigned code)
{
    static const char* const kBits[16] = {nullptr,
                                          "Other",
                                          "Unknown",
                                          "Fast-paged",
                                          "Static Column",
                                          "Pseudo-static",
                                          "RAMBus",
                                          "Synchronous",
                                          "CMOS",
                                          "EDO",
                                          "Window DRAM",
                                          "Cache DRAM",
                                          "Non-Volatile",
                                          "Registered (Buffered)",
                                          "Unbuffered (Unregistered)",
                                          "LRDIMM"};
    if ((code & 0xFFFE) == 0) {
        return "None";
    }
    std::string text;
    for (int bit = 1; bit < 16; bit++) {
        if ((code & (1u << bit)) != 0) {
            text += (text.empty() ? "" : " ") + std::string(kBits[bit]);
        }
    }
    return text;
}

void readMemory(const Record& r, HostInventory& host)
{
    if (r.length < 0x15) {
        host.warnings.push_back("handle " + hex4(r.handle) + ": memory device record too short (" +
                                std::to_string(r.length) + " bytes); skipped");
        return;
    }
    HostInventory::MemoryDevice m;
    unsigned width = r.word(0x0A);
    m.dataWidth = width == 0xFFFF ? 0 : width;
    unsigned size = r.word(0x0C);
    m.installed = size != 0;
    if (size == 0xFFFF) {
        m.sizeMB = -1;
    } else if (size == 0x7FFF && r.length >= 0x20) {
        m.sizeMB = static_cast<long long>(r.dword(0x1C) & 0x7FFFFFFF);
    } else if ((size & 0x8000) != 0) {
        m.sizeMB = static_cast<long long>(size & 0x7FFF) / 1024;  // kilobytes
    } else {
        m.sizeMB = size;
    }
    m.locator = r.text(0x10);
    m.bank = r.text(0x11);
    m.type = memoryType(r.byte(0x12));
    m.typeDetail = typeDetail(r.word(0x13));
    if (r.length >= 0x17) {
        unsigned speed = r.word(0x15);
        m.speed = speed == 0xFFFF && r.length >= 0x5C ? r.dword(0x54) : (speed == 0xFFFF ? 0 : speed);
    }
    if (r.length >= 0x1B) {
        m.manufacturer = r.text(0x17);
        m.serial = r.text(0x18);
        m.assetTag = r.text(0x19);
        m.partNumber = r.text(0x1A);
    }
    host.memory.push_back(m);
}

void readOnboard(const Record& r, HostInventory& host)
{
    if (r.length < 0x0B) {
        host.warnings.push_back("handle " + hex4(r.handle) + ": on-board device record too short; skipped");
        return;
    }
    static const char* const kKinds[] = {
        "Other",           "Unknown",         "Video",          "SCSI Controller", "Ethernet",  "Token Ring", "Sound",
        "PATA Controller", "SATA Controller", "SAS Controller", "Wireless LAN",    "Bluetooth", "WWAN",       "eMMC",
        "NVMe Controller", "UFS Controller"};
    unsigned kind = r.byte(0x05) & 0x7F;
    HostInventory::Device d;
    d.designation = r.text(0x04);
    d.kind = kind >= 1 && kind <= sizeof kKinds / sizeof kKinds[0] ? kKinds[kind - 1] : "<OUT OF SPEC>";
    host.onboard.push_back(d);
}

}  // namespace

bool SmbiosTableReader::read(const std::string& bytes, HostInventory& host)
{
    uint64_t address = 0;
    uint64_t length = 0;
    unsigned count = 0;  // structures in the table; 0: not limited
    unsigned version = 0;
    if (bytes.size() >= 0x18 && bytes.compare(0, 5, "_SM3_") == 0) {
        version = u8(bytes, 7) << 8 | u8(bytes, 8);
        length = u32(bytes, 0x0C);
        address = u64(bytes, 0x10);
    } else if (bytes.size() >= 0x1F && bytes.compare(0, 4, "_SM_") == 0) {
        version = u8(bytes, 6) << 8 | u8(bytes, 7);
        length = u16(bytes, 0x16);
        address = u32(bytes, 0x18);
        count = u16(bytes, 0x1C);
    } else if (bytes.size() >= 0x0F && bytes.compare(0, 5, "_DMI_") == 0) {
        version = (u8(bytes, 0x0E) >> 4) << 8 | (u8(bytes, 0x0E) & 0x0F);
        length = u16(bytes, 0x06);
        address = u32(bytes, 0x08);
        count = u16(bytes, 0x0C);
    } else {
        host.warnings.push_back("no SMBIOS entry point (_SM3_, _SM_ or _DMI_) at the start of the file");
        return false;
    }
    if (address >= bytes.size()) {
        host.warnings.push_back("the table lies outside the file");
        return false;
    }
    if (length > bytes.size() - address) {
        host.warnings.push_back("the table is cut short: " + std::to_string(bytes.size() - address) + " of " +
                                std::to_string(length) + " bytes");
        length = bytes.size() - address;
    }
    const std::string table = bytes.substr(static_cast<size_t>(address), static_cast<size_t>(length));
    size_t at = 0;
    unsigned seen = 0;
    while (at + 4 <= table.size() && (count == 0 || seen < count)) {
        Record r;
        r.type = u8(table, at);
        r.length = u8(table, at + 1);
        r.handle = u16(table, at + 2);
        seen++;
        if (r.length < 4) {
            host.warnings.push_back("handle " + hex4(r.handle) + ": record length " + std::to_string(r.length) +
                                    " is too short; the rest of the table is skipped");
            break;
        }
        if (at + r.length > table.size()) {
            host.warnings.push_back("handle " + hex4(r.handle) + ": record cut off at the end of the table; skipped");
            break;
        }
        r.data = table.substr(at, r.length);
        // The strings follow, each NUL-terminated, the set ended by a second NUL.
        size_t end = at + r.length;
        size_t stringsEnd = std::string::npos;
        for (size_t k = end; k + 1 < table.size(); k++) {
            if (table[k] == '\0' && table[k + 1] == '\0') {
                stringsEnd = k;
                break;
            }
        }
        if (stringsEnd == std::string::npos) {
            host.warnings.push_back("handle " + hex4(r.handle) + ": strings cut off at the end of the table; skipped");
            break;
        }
        for (size_t k = end; k < stringsEnd;) {
            size_t nul = table.find('\0', k);
            nul = nul == std::string::npos || nul > stringsEnd ? stringsEnd : nul;
            r.strings.push_back(table.substr(k, nul - k));
            k = nul + 1;
        }
        switch (r.type) {
            case 1:
                readSystem(r, version, host);
                break;
            case 4:
                readProcessor(r, host);
                break;
            case 9:
                readSlot(r, host);
                break;
            case 17:
                readMemory(r, host);
                break;
            case 41:
                readOnboard(r, host);
                break;
            default:
                break;
        }
        if (r.type == 127) {
            break;
        }
        at = stringsEnd + 2;
    }
    return true;
}
