// A record of the text is a "Handle 0x0004, DMI type 4, 48 bytes" line, a
// title line, then indented "Key: Value" lines (lists under a "Key:" line are
// indented deeper and are not needed here).
#include "DmidecodeTextReader.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

std::string trimmed(const std::string& s)
{
    size_t first = s.find_first_not_of(" \t\r");
    if (first == std::string::npos) {
        return "";
    }
    return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

struct Block {
    std::string handle;
    int type = -1;
    size_t keyIndent = std::string::npos;
    std::map<std::string, std::string> values;

    bool has(const char* key) const { return values.count(key) != 0; }
    std::string get(const char* key) const
    {
        auto it = values.find(key);
        return it != values.end() ? it->second : "";
    }
    // The leading number of a value ("2500 MHz", "48"); 0 when there is none.
    unsigned number(const char* key) const
    {
        std::string v = get(key);
        if (v.empty() || v[0] < '0' || v[0] > '9') {
            return 0;
        }
        unsigned long n = strtoul(v.c_str(), nullptr, 10);
        return n > 0xFFFFFFFFul ? 0 : static_cast<unsigned>(n);
    }
};

// "16 GB", "512 MB", "4096 kB" as megabytes; -1 when not a size.
long long megabytes(const std::string& text)
{
    char* end = nullptr;
    unsigned long long n = strtoull(text.c_str(), &end, 10);
    if (end == text.c_str() || n > (1ull << 40)) {
        return -1;
    }
    std::string unit = trimmed(end);
    const struct {
        const char* unit;
        int shift;  // log2 of the unit in kB
    } units[] = {{"bytes", -10}, {"kB", 0}, {"KB", 0}, {"MB", 10}, {"GB", 20}, {"TB", 30}, {"PB", 40}, {"EB", 50}};
    for (const auto& u : units) {
        if (unit == u.unit) {
            long double kb = u.shift >= 0 ? static_cast<long double>(n) * static_cast<long double>(1ull << u.shift)
                                          : static_cast<long double>(n) / 1024.0L;
            return static_cast<long long>(kb / 1024.0L);
        }
    }
    return -1;
}

void take(const Block& b, HostInventory& host)
{
    switch (b.type) {
        case 1:
            if (!b.has("Manufacturer")) {
                host.warnings.push_back("handle " + b.handle + ": system record without fields; skipped");
                break;
            }
            host.system.manufacturer = b.get("Manufacturer");
            host.system.product = b.get("Product Name");
            host.system.serial = b.get("Serial Number");
            // dmidecode prints lower-case hex; the host description holds upper case.
            host.system.uuid = b.get("UUID");
            for (char& c : host.system.uuid) {
                c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
            }
            if (host.system.uuid.size() != 36 ||
                host.system.uuid.find_first_not_of("0123456789ABCDEF-") != std::string::npos) {
                host.system.uuid.clear();  // "Not Present", "Not Settable"
            }
            break;
        case 4: {
            if (!b.has("Status")) {
                host.warnings.push_back("handle " + b.handle + ": processor record without a status; skipped");
                break;
            }
            HostInventory::Processor p;
            p.socket = b.get("Socket Designation");
            p.manufacturer = b.get("Manufacturer");
            p.family = b.get("Family");
            p.serial = b.get("Serial Number");
            p.version = b.get("Version");
            p.status = b.get("Status");
            p.signature = b.get("Signature");
            p.threads = b.number("Thread Count");
            p.cores = b.number("Core Count");
            p.coresEnabled = b.number("Core Enabled");
            p.speed = b.number("Current Speed");
            p.maxSpeed = b.number("Max Speed");
            host.processors.push_back(p);
            break;
        }
        case 9:
            if (b.get("Current Usage") == "In Use") {
                host.slots.push_back({b.get("Designation"), b.get("ID"), ""});
            }
            break;
        case 17: {
            if (!b.has("Size") || !b.has("Locator")) {
                host.warnings.push_back("handle " + b.handle +
                                        ": memory device record without size or locator; skipped");
                break;
            }
            HostInventory::MemoryDevice m;
            std::string size = b.get("Size");
            m.installed = size != "No Module Installed";
            m.sizeMB = m.installed ? megabytes(size) : 0;
            m.locator = b.get("Locator");
            m.bank = b.get("Bank Locator");
            m.type = b.get("Type");
            m.typeDetail = b.get("Type Detail");
            m.speed = b.number("Speed");
            m.manufacturer = b.get("Manufacturer");
            m.serial = b.get("Serial Number");
            m.assetTag = b.get("Asset Tag");
            m.partNumber = b.get("Part Number");
            m.dataWidth = b.number("Data Width");
            host.memory.push_back(m);
            break;
        }
        case 41:
            if (!b.has("Reference Designation")) {
                host.warnings.push_back("handle " + b.handle + ": on-board device record without fields; skipped");
                break;
            }
            host.onboard.push_back({b.get("Reference Designation"), "", b.get("Type")});
            break;
        default:
            break;
    }
}

}  // namespace

bool DmidecodeTextReader::read(const std::string& text, HostInventory& host)
{
    Block block;
    bool any = false;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end;
        std::string line = text.substr(at, end - at);
        at = end + 1;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.compare(0, 9, "Handle 0x") == 0) {
            take(block, host);
            block = Block();
            size_t comma = line.find(',');
            block.handle = line.substr(7, comma == std::string::npos ? std::string::npos : comma - 7);
            size_t type = line.find("DMI type ");
            if (type != std::string::npos) {
                block.type = atoi(line.c_str() + type + 9);
                any = true;
            }
            continue;
        }
        if (block.type < 0 || line.empty() || (line[0] != '\t' && line[0] != ' ')) {
            continue;  // the title line, comments, text between records
        }
        // Key lines share the record's first indent (a tab, or blanks when
        // pasted); deeper lines belong to a list.
        size_t indent = line.find_first_not_of(" \t");
        if (indent == std::string::npos) {
            continue;
        }
        if (block.keyIndent == std::string::npos) {
            block.keyIndent = indent;
        }
        if (indent > block.keyIndent) {
            continue;
        }
        size_t colon = line.find(':', indent);
        if (colon == std::string::npos) {
            continue;
        }
        std::string key = line.substr(indent, colon - indent);
        std::string value = trimmed(line.substr(colon + 1));
        if (!value.empty() && block.values.count(key) == 0) {
            block.values[key] = value;
        }
    }
    take(block, host);
    if (!any) {
        host.warnings.push_back("no \"Handle 0x..., DMI type ...\" line: not dmidecode output");
    }
    return any;
}
