// simhw: builds the simulated hardware's packed files from a readable
// description, and dumps a MAC database back into one, so nobody edits packed
// bytes by hand.
//
//   simhw build DESCRIPTION.json ROOT   write the files the description names below ROOT
//   simhw dump-macdb MacDB.bin          print a MAC database as a "macdb" description
//   simhw host --from-dmidecode|--from-dump FILE [--onto HOST.json]
//                                       print a real host's SMBIOS data (dmidecode's
//                                       text or a --dump-bin file) as the SMBIOS
//                                       host description; other sections from HOST.json
//
// Sections of a description (each optional; see docs/simulator.md):
//   "pmbus":   power-management daemon files   -> /var/pmbus/...
//   "gpu":     GPU daemon files                -> /var/gpu/...
//   "sensors": drive-slot sensors               -> /var/aim/functions/GetActiveSensorInfoByType
//   "macdb":   the BIOS's MAC database          -> /var/pellox/BIOS/MacDB.bin
#include <cjson/cJSON.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "DmidecodeTextReader.h"
#include "HostDescription.h"
#include "SmbiosTableReader.h"

namespace {

using Bytes = std::string;

bool fail(const char* format, const char* text)
{
    fprintf(stderr, "simhw: ");
    fprintf(stderr, format, text);
    fprintf(stderr, "\n");
    return false;
}

void put16(Bytes& b, unsigned v)
{
    b += static_cast<char>(v & 0xff);
    b += static_cast<char>((v >> 8) & 0xff);
}

void put32(Bytes& b, long v)
{
    unsigned long u = static_cast<unsigned long>(v);
    for (int i = 0; i < 4; i++) {
        b += static_cast<char>((u >> (8 * i)) & 0xff);
    }
}

// `text` in a field of `size` bytes, NUL-padded (cut to size - 1 characters
// unless `full`, which lets a text fill the field without a terminator).
void putText(Bytes& b, const char* text, size_t size, bool full = false)
{
    size_t len = strlen(text);
    size_t keep = full ? size : size - 1;
    len = len > keep ? keep : len;
    b.append(text, len);
    b.append(size - len, '\0');
}

bool makeDirs(const std::string& path)
{
    for (size_t pos = 1; pos <= path.size(); pos++) {
        if (pos == path.size() || path[pos] == '/') {
            std::string dir = path.substr(0, pos);
            if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
                return fail("cannot create %s", dir.c_str());
            }
        }
    }
    return true;
}

bool writeFile(const std::string& root, const std::string& path, const Bytes& bytes)
{
    std::string full = root + path;
    if (!makeDirs(full.substr(0, full.rfind('/')))) {
        return false;
    }
    FILE* f = fopen(full.c_str(), "wb");
    if (f == nullptr) {
        return fail("cannot write %s", full.c_str());
    }
    bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = fclose(f) == 0 && ok;
    return ok ? true : fail("cannot write %s", full.c_str());
}

bool readFile(const char* path, Bytes& bytes)
{
    FILE* f = fopen(path, "rb");
    if (f == nullptr) {
        return fail("cannot read %s", path);
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
        bytes.append(buf, n);
    }
    fclose(f);
    return true;
}

// A number given as a JSON number or as text in C notation ("0x0840").
bool number(const cJSON* obj, const char* key, long& value)
{
    const cJSON* item = cJSON_GetObjectItem(obj, key);
    if (cJSON_IsNumber(item)) {
        value = static_cast<long>(item->valuedouble);
        return true;
    }
    if (cJSON_IsString(item)) {
        value = strtol(item->valuestring, nullptr, 0);
        return true;
    }
    return false;
}

const char* text(const cJSON* obj, const char* key)
{
    const cJSON* item = cJSON_GetObjectItem(obj, key);
    return cJSON_IsString(item) ? item->valuestring : nullptr;
}

bool buildPmbus(const cJSON* pmbus, const std::string& root)
{
    const cJSON* supplies = cJSON_GetObjectItem(pmbus, "supplies");
    long count = cJSON_GetArraySize(supplies);
    number(pmbus, "num_psu", count);
    Bytes b;
    put32(b, count);
    if (!writeFile(root, "/var/pmbus/num_psu", b)) {
        return false;
    }
    int n = 0;
    const cJSON* ps;
    cJSON_ArrayForEach(ps, supplies)
    {
        std::string dir = "/var/pmbus/ps" + std::to_string(n++) + "/";
        if (cJSON_IsTrue(cJSON_GetObjectItem(ps, "absent"))) {
            continue;  // no files at all: the supply slot is empty
        }
        long v;
        const char* words[] = {"status", "pin", "poutmax"};
        for (const char* key : words) {
            if (number(ps, key, v)) {
                b.clear();
                put16(b, static_cast<unsigned>(v));
                if (!writeFile(root, dir + key, b)) {
                    return false;
                }
            }
        }
        const struct {
            const char* key;
            size_t size;
        } texts[] = {{"rev", 8}, {"model", 31}, {"mfgRev", 31}};
        for (const auto& t : texts) {
            if (const char* value = text(ps, t.key)) {
                b.clear();
                putText(b, value, t.size, true);
                if (!writeFile(root, dir + t.key, b)) {
                    return false;
                }
            }
        }
    }
    return true;
}

bool buildGpu(const cJSON* gpu, const std::string& root)
{
    const cJSON* cards = cJSON_GetObjectItem(gpu, "cards");
    long count = cJSON_GetArraySize(cards);
    number(gpu, "num_gpu_sys", count);
    Bytes b;
    put32(b, count);
    if (!writeFile(root, "/var/gpu/num_gpu_sys", b)) {
        return false;
    }
    int c = 0;
    const cJSON* card;
    cJSON_ArrayForEach(card, cards)
    {
        std::string dir = "/var/gpu/gpu" + std::to_string(c++) + "/";
        const cJSON* temps = cJSON_GetObjectItem(card, "temps");
        long v = cJSON_GetArraySize(temps);
        number(card, "num_gpu", v);
        b.clear();
        put32(b, v);
        if (!writeFile(root, dir + "num_gpu", b)) {
            return false;
        }
        if (const char* name = text(card, "card_name")) {
            if (!writeFile(root, dir + "card_name", std::string(name) + "\n")) {
                return false;
            }
        }
        if (number(card, "pci_slotid", v)) {
            b.clear();
            put32(b, v);
            if (!writeFile(root, dir + "pci_slotid", b)) {
                return false;
            }
        }
        int g = 0;
        const cJSON* temp;
        cJSON_ArrayForEach(temp, temps)
        {
            b.clear();
            put16(b, static_cast<unsigned>(temp->valueint));
            if (!writeFile(root, dir + "temp" + std::to_string(g++), b)) {
                return false;
            }
        }
    }
    return true;
}

bool buildSensors(const cJSON* sensors, const std::string& root)
{
    Bytes b = "ok\n";
    const cJSON* s;
    cJSON_ArrayForEach(s, sensors)
    {
        Bytes rec(738, '\0');
        const char* name = text(s, "name");
        const char* status = text(s, "status");
        if (name != nullptr) {
            rec.replace(6, strnlen(name, 127), name, strnlen(name, 127));
        }
        if (status != nullptr) {
            rec.replace(134, strnlen(status, 603), status, strnlen(status, 603));
        }
        b += rec;
    }
    return writeFile(root, "/var/aim/functions/GetActiveSensorInfoByType", b);
}

// Slot ids: numbers up to 64, or one or two letters ("L", "MZ").
bool slotId(const cJSON* item, unsigned& id)
{
    if (cJSON_IsNumber(item)) {
        id = static_cast<unsigned>(item->valueint);
        return true;
    }
    if (cJSON_IsString(item) && strlen(item->valuestring) >= 1 && strlen(item->valuestring) <= 2) {
        const unsigned char* s = reinterpret_cast<const unsigned char*>(item->valuestring);
        id = s[1] != 0 ? (s[0] << 8 | s[1]) : s[0];
        return true;
    }
    return fail("bad slot id%s", "");
}

bool buildMacdb(const cJSON* macdb, const std::string& root)
{
    long slots = 7;
    number(macdb, "slots", slots);
    const cJSON* adapters = cJSON_GetObjectItem(macdb, "adapters");
    if (slots < 1 || slots > 64 || cJSON_GetArraySize(adapters) > slots) {
        return fail("\"slots\" must be 1 to 64 and hold every adapter%s", "");
    }
    Bytes map;
    Bytes macs;
    long macCount = 0;
    const cJSON* a;
    cJSON_ArrayForEach(a, adapters)
    {
        unsigned id = 0;
        if (!slotId(cJSON_GetObjectItem(a, "slot"), id)) {
            return false;
        }
        const cJSON* list = cJSON_GetObjectItem(a, "macs");
        long interfaces = cJSON_GetArraySize(list);
        number(a, "interfaces", interfaces);
        put16(map, id);
        put16(map, static_cast<unsigned>(interfaces));
        map.append(4, '\0');
        putText(map, text(a, "name") != nullptr ? text(a, "name") : "", 64);
        int interfaceId = 1;
        const cJSON* mac;
        cJSON_ArrayForEach(mac, list)
        {
            put16(macs, static_cast<unsigned>(interfaceId++));
            put16(macs, id);
            macs.append(4, '\0');
            putText(macs, cJSON_IsString(mac) ? mac->valuestring : "", 32);
            macCount++;
        }
    }
    map.append(static_cast<size_t>(72 * slots) - map.size(), '\0');
    long count = cJSON_GetArraySize(adapters);
    number(macdb, "adapterCount", count);
    Bytes b;
    b += static_cast<char>(0xDB);
    b += static_cast<char>(count & 0xff);
    put16(b, static_cast<unsigned>(macCount));
    put16(b, static_cast<unsigned>(8 + map.size() + macs.size()));
    put16(b, 0);
    return writeFile(root, "/var/pellox/BIOS/MacDB.bin", b + map + macs);
}

int build(const char* description, const char* root)
{
    Bytes textBytes;
    if (!readFile(description, textBytes)) {
        return 1;
    }
    cJSON* doc = cJSON_Parse(textBytes.c_str());
    if (doc == nullptr) {
        fail("%s is not valid JSON", description);
        return 1;
    }
    bool ok = true;
    if (const cJSON* s = cJSON_GetObjectItem(doc, "pmbus")) {
        ok = ok && buildPmbus(s, root);
    }
    if (const cJSON* s = cJSON_GetObjectItem(doc, "gpu")) {
        ok = ok && buildGpu(s, root);
    }
    if (const cJSON* s = cJSON_GetObjectItem(doc, "sensors")) {
        ok = ok && buildSensors(s, root);
    }
    if (const cJSON* s = cJSON_GetObjectItem(doc, "macdb")) {
        ok = ok && buildMacdb(s, root);
    }
    cJSON_Delete(doc);
    return ok ? 0 : 1;
}

unsigned u16(const Bytes& b, size_t at)
{
    return static_cast<unsigned char>(b[at]) | static_cast<unsigned char>(b[at + 1]) << 8;
}

std::string field(const Bytes& b, size_t at, size_t size)
{
    return std::string(b.data() + at, strnlen(b.data() + at, size));
}

int dumpMacdb(const char* path)
{
    Bytes b;
    if (!readFile(path, b)) {
        return 1;
    }
    if (b.size() < 8 || static_cast<unsigned char>(b[0]) != 0xDB) {
        fail("%s: no MAC database header", path);
        return 1;
    }
    unsigned macs = u16(b, 2);
    unsigned total = u16(b, 4);
    long mapBytes = static_cast<long>(total) - 8 - 40L * macs;
    if (total != b.size() || mapBytes < 72 || mapBytes % 72 != 0) {
        fail("%s: lengths do not add up", path);
        return 1;
    }
    long slots = mapBytes / 72;
    cJSON* macdb = cJSON_CreateObject();
    cJSON_AddNumberToObject(macdb, "slots", static_cast<double>(slots));
    cJSON_AddNumberToObject(macdb, "adapterCount", static_cast<unsigned char>(b[1]));
    cJSON* adapters = cJSON_AddArrayToObject(macdb, "adapters");
    for (long k = 0; k < slots; k++) {
        size_t at = 8 + 72 * static_cast<size_t>(k);
        unsigned id = u16(b, at);
        if (id == 0) {
            continue;
        }
        cJSON* a = cJSON_CreateObject();
        if (id <= 64) {
            cJSON_AddNumberToObject(a, "slot", id);
        } else {
            std::string letters;
            if (id > 0xff) {
                letters += static_cast<char>(id >> 8);
            }
            letters += static_cast<char>(id & 0xff);
            cJSON_AddStringToObject(a, "slot", letters.c_str());
        }
        cJSON_AddStringToObject(a, "name", field(b, at + 8, 64).c_str());
        cJSON_AddNumberToObject(a, "interfaces", u16(b, at + 2));
        cJSON* list = cJSON_AddArrayToObject(a, "macs");
        for (unsigned i = 0; i < macs; i++) {
            size_t m = 8 + 72 * static_cast<size_t>(slots) + 40 * static_cast<size_t>(i);
            if (u16(b, m + 2) == id) {
                cJSON_AddItemToArray(list, cJSON_CreateString(field(b, m + 8, 32).c_str()));
            }
        }
        cJSON_AddItemToArray(adapters, a);
    }
    cJSON* doc = cJSON_CreateObject();
    cJSON_AddItemToObject(doc, "macdb", macdb);
    char* out = cJSON_Print(doc);
    printf("%s\n", out);
    free(out);
    cJSON_Delete(doc);
    return 0;
}

// The host description of a real host's SMBIOS data, on standard output;
// skipped records are named on standard error.
int host(const char* form, const char* path, const char* onto)
{
    Bytes input;
    Bytes base;
    if (!readFile(path, input) || (onto != nullptr && !readFile(onto, base))) {
        return 1;
    }
    HostInventory inventory;
    bool ok = strcmp(form, "--from-dump") == 0 ? SmbiosTableReader::read(input, inventory)
                                               : DmidecodeTextReader::read(input, inventory);
    for (const std::string& warning : inventory.warnings) {
        fprintf(stderr, "simhw: %s: %s\n", path, warning.c_str());
    }
    if (!ok) {
        return 1;
    }
    std::string json;
    if (!HostDescription::write(inventory, base, json)) {
        fail("%s is not a host description", onto);
        return 1;
    }
    fputs(json.c_str(), stdout);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && strcmp(argv[1], "build") == 0) {
        return build(argv[2], argv[3]);
    }
    if (argc == 3 && strcmp(argv[1], "dump-macdb") == 0) {
        return dumpMacdb(argv[2]);
    }
    bool form = argc >= 4 && strcmp(argv[1], "host") == 0 &&
                (strcmp(argv[2], "--from-dmidecode") == 0 || strcmp(argv[2], "--from-dump") == 0);
    if (form && argc == 4) {
        return host(argv[2], argv[3], nullptr);
    }
    if (form && argc == 6 && strcmp(argv[4], "--onto") == 0) {
        return host(argv[2], argv[3], argv[5]);
    }
    fprintf(stderr,
            "usage: simhw build DESCRIPTION.json ROOT\n"
            "       simhw dump-macdb MacDB.bin\n"
            "       simhw host --from-dmidecode|--from-dump FILE [--onto HOST.json]\n");
    return 2;
}
