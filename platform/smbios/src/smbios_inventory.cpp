// Stand-in for the controller's SMBIOS inventory library: packs the records
// of the readable host description "/var/smbios/host.json" (see
// smbios_inventory.h and docs/simulator.md).
#include "smbios_inventory.h"

#include <cjson/cJSON.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "PlatformRoot.h"

namespace {

const char kHostFile[] = "/var/smbios/host.json";

std::string readFile(const std::string& path)
{
    std::string text;
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        return text;
    }
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, f)) > 0) {
        text.append(chunk, n);
    }
    fclose(f);
    return text;
}

// The parsed host description; null when it is missing or not JSON.
struct Host {
    cJSON* root = nullptr;
    Host() { root = cJSON_Parse(readFile(PlatformRoot::path(kHostFile)).c_str()); }
    explicit Host(cJSON* parsed) : root(parsed) {}
    ~Host() { cJSON_Delete(root); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    cJSON* get(const char* key) const
    {
        return root != nullptr ? cJSON_GetObjectItemCaseSensitive(root, key) : nullptr;
    }
};

// A number given as a JSON number or as text in C notation ("0x8086").
long number(const cJSON* object, const char* key, long fallback = 0)
{
    const cJSON* item = object != nullptr ? cJSON_GetObjectItemCaseSensitive(object, key) : nullptr;
    if (cJSON_IsNumber(item)) {
        return static_cast<long>(item->valuedouble);
    }
    if (cJSON_IsString(item) && item->valuestring != nullptr) {
        return static_cast<long>(strtoul(item->valuestring, nullptr, 0));
    }
    return fallback;
}

const char* text(const cJSON* object, const char* key)
{
    const cJSON* item = object != nullptr ? cJSON_GetObjectItemCaseSensitive(object, key) : nullptr;
    return cJSON_IsString(item) && item->valuestring != nullptr ? item->valuestring : "";
}

// Packs records into a byte vector; strings are cut to their field and
// NUL-padded (a text filling its field keeps no terminator).
struct Packer {
    std::vector<unsigned char>& out;
    size_t base;
    Packer(std::vector<unsigned char>& bytes, size_t size) : out(bytes), base(bytes.size()) { out.resize(base + size); }
    void str(size_t offset, size_t size, const char* value)
    {
        size_t n = strlen(value);
        memcpy(&out[base + offset], value, n < size ? n : size);
    }
    void i32(size_t offset, long value)
    {
        uint32_t v = static_cast<uint32_t>(value);
        for (int i = 0; i < 4; i++) {
            out[base + offset + i] = static_cast<unsigned char>(v >> (8 * i));
        }
    }
    void u16(size_t offset, long value)
    {
        out[base + offset] = static_cast<unsigned char>(value);
        out[base + offset + 1] = static_cast<unsigned char>(value >> 8);
    }
    void be16(size_t offset, long value)
    {
        out[base + offset] = static_cast<unsigned char>(value >> 8);
        out[base + offset + 1] = static_cast<unsigned char>(value);
    }
};

int arraySize(const Host& host, const char* key)
{
    return cJSON_GetArraySize(host.get(key));
}

void packCpus(const Host& host, std::vector<unsigned char>& out)
{
    const cJSON* cpu;
    cJSON_ArrayForEach(cpu, host.get("processors"))
    {
        Packer p(out, SMBIOS_CPU_RECORD_SIZE);
        p.str(0, 64, text(cpu, "socket"));
        p.str(64, 64, text(cpu, "manufacturer"));
        p.str(128, 44, text(cpu, "family"));
        p.i32(172, number(cpu, "threads"));
        p.str(176, 64, text(cpu, "serial"));
        p.str(240, 64, text(cpu, "version"));
        p.i32(304, number(cpu, "speed"));
        p.i32(308, number(cpu, "cores"));
        p.i32(312, number(cpu, "coresEnabled"));
        p.str(316, 40, text(cpu, "status"));
        p.i32(356, number(cpu, "maxSpeed"));
        p.str(360, 64, text(cpu, "signature"));
    }
}

void packDimms(const Host& host, std::vector<unsigned char>& out, bool detail)
{
    const cJSON* d;
    cJSON_ArrayForEach(d, host.get("dimms"))
    {
        Packer p(out, detail ? SMBIOS_DIMM_DETAIL_RECORD_SIZE : SMBIOS_DIMM_RECORD_SIZE);
        p.str(0, 64, text(d, "name"));
        p.str(64, 64, text(d, "capacity"));
        p.str(128, 64, text(d, "speed"));
        p.str(192, 64, text(d, "type"));
        if (detail) {
            p.str(256, 32, text(d, "typeDetail"));
            p.str(288, 64, text(d, "bank"));
            p.str(352, 64, text(d, "manufacturer"));
            p.str(416, 64, text(d, "serial"));
            p.str(480, 64, text(d, "assetTag"));
            p.str(544, 64, text(d, "partNumber"));
            p.str(608, 16, text(d, "visibility"));
            p.str(624, 16, text(d, "operability"));
            p.str(640, 32, text(d, "dataWidth"));
        }
    }
}

void packSummary(const Host& host, std::vector<unsigned char>& out)
{
    const cJSON* s = host.get("memorySummary");
    Packer p(out, SMBIOS_MEMORY_SUMMARY_SIZE);
    const char* const keys[] = {"speed", "total", "effective", "redundant", "failed", "ignored"};
    for (size_t i = 0; i < sizeof keys / sizeof keys[0]; i++) {
        p.str(32 * i, 32, text(s, keys[i]));
    }
    p.u16(192, number(s, "ignoredDimms"));
    p.u16(194, number(s, "failedDimms"));
    p.str(204, 44, text(s, "rasPossible"));
    p.str(248, 32, text(s, "configuration"));
}

void packSystem(const Host& host, std::vector<unsigned char>& out)
{
    const cJSON* s = host.get("system");
    Packer p(out, SMBIOS_SYSTEM_RECORD_SIZE);
    p.str(0, 64, text(s, "manufacturer"));
    p.str(64, 64, text(s, "product"));
    // The UUID as 32 hex digits (dashes allowed) in the description.
    const char* uuid = text(s, "uuid");
    size_t at = 0;
    for (const char* c = uuid; *c != '\0' && c[1] != '\0' && at < 16; c++) {
        if (*c == '-') {
            continue;
        }
        char pair[3] = {c[0], c[1], '\0'};
        out[p.base + SMBIOS_SYSTEM_UUID_OFFSET + at++] = static_cast<unsigned char>(strtoul(pair, nullptr, 16));
        c++;
    }
}

void packBootOrder(const Host& host, std::vector<unsigned char>& out)
{
    Packer p(out, SMBIOS_BOOT_ORDER_SIZE);
    const cJSON* list = host.get("bootOrder");
    int count = 0;
    const cJSON* rec;
    cJSON_ArrayForEach(rec, list)
    {
        if (count == SMBIOS_BOOT_MAX_RECORDS) {
            break;
        }
        size_t base = 4 + static_cast<size_t>(count) * SMBIOS_BOOT_RECORD_SIZE;
        out[p.base + base] = static_cast<unsigned char>(number(rec, "type"));
        int devices = 0;
        const cJSON* dev;
        cJSON_ArrayForEach(dev, cJSON_GetObjectItemCaseSensitive(rec, "devices"))
        {
            if (devices == SMBIOS_BOOT_MAX_DEVICES || !cJSON_IsString(dev)) {
                break;
            }
            p.str(base + 2 + static_cast<size_t>(devices) * SMBIOS_BOOT_DEVICE_NAME_SIZE, SMBIOS_BOOT_DEVICE_NAME_SIZE,
                  dev->valuestring);
            devices++;
        }
        out[p.base + base + 1] = static_cast<unsigned char>(number(rec, "deviceCount", devices));
        count++;
    }
    // "bootOrderCount" overrides the count, to describe a broken table.
    p.i32(0, number(host.root, "bootOrderCount", count));
}

void packPcie(const Host& host, std::vector<unsigned char>& out)
{
    const cJSON* a;
    cJSON_ArrayForEach(a, host.get("pcie"))
    {
        Packer p(out, SMBIOS_PCIE_RECORD_SIZE);
        p.be16(0, number(a, "vendor"));
        p.be16(2, number(a, "device"));
        p.be16(4, number(a, "subVendor"));
        p.be16(6, number(a, "subDevice"));
        p.str(16, 64, text(a, "name"));
        p.str(80, 64, text(a, "slot"));
        p.str(144, 64, text(a, "firmware"));
        p.i32(208, number(a, "optionRom"));
    }
}

void packLom(const Host& host, std::vector<unsigned char>& out)
{
    const cJSON* l;
    cJSON_ArrayForEach(l, host.get("lom"))
    {
        Packer p(out, SMBIOS_LOM_RECORD_SIZE);
        p.str(0, 24, text(l, "name"));
        p.str(24, 18, text(l, "mac"));
    }
}

// Statistics records; `id` 0 selects all, another id only its records.
void packStats(const Host& host, const char* key, long id, std::vector<unsigned char>& out)
{
    const cJSON* s;
    cJSON_ArrayForEach(s, host.get(key))
    {
        if (id != 0 && number(s, "id") != id) {
            continue;
        }
        Packer p(out, SMBIOS_STAT_RECORD_SIZE);
        p.i32(0, number(s, "id"));
        p.str(4, 64, text(s, "temperature"));
        p.str(68, 32, text(s, "description"));
    }
}

void packBoard(const Host& host, std::vector<unsigned char>& out)
{
    const cJSON* b = host.get("motherboardStats");
    Packer p(out, SMBIOS_BOARD_STATS_SIZE);
    const char* const keys[] = {"consumedPower", "inputCurrent", "inputVoltage", "ambientTemp",
                                "frontTemp",     "iohub1Temp",   "iohub2Temp",   "rearTemp"};
    for (size_t i = 0; i < 8; i++) {
        p.str(i * SMBIOS_BOARD_STAT_FIELD_SIZE, SMBIOS_BOARD_STAT_FIELD_SIZE, text(b, keys[i]));
    }
}

// A call's fault file: -1 when absent, 0 to fail the call, n+1 to return
// only n bytes.
long fault(const char* call)
{
    std::string content;
    if (!PlatformRoot::faultText("smbios", call, content)) {
        return -1;
    }
    long n = 0;
    if (sscanf(content.c_str(), "short %ld", &n) == 1 && n >= 0) {
        return n + 1;
    }
    return 0;
}

// The common frame of every call: fault file, delay, capacity check, copy.
// `wantsAll` calls fail when the records do not fit; the statistics calls
// return as many whole records as fit instead.
int answer(const char* call, const Host& host, std::vector<unsigned char>& bytes, int* length, int capacity,
           void* output, bool cutToCapacity = false)
{
    // The delay models the slow walk over the host's tables; reading the
    // one-byte data version is quick on a controller and is not delayed.
    long delay = strcmp(call, "GetSmBiosDataVersion") == 0 ? 0 : number(host.root, "delayMs");
    if (delay > 0) {
        usleep(static_cast<useconds_t>(delay) * 1000);
    }
    long f = fault(call);
    if (f == 0 || length == nullptr || capacity < 0 || (output == nullptr && capacity > 0)) {
        return -1;
    }
    size_t cap = static_cast<size_t>(capacity);
    if (bytes.size() > cap) {
        if (!cutToCapacity) {
            return -2;
        }
        bytes.resize(cap - cap % SMBIOS_STAT_RECORD_SIZE);
    }
    size_t n = bytes.size();
    if (f > 0 && static_cast<size_t>(f - 1) < n) {
        n = static_cast<size_t>(f - 1);
    }
    if (n > 0) {
        memcpy(output, bytes.data(), n);
    }
    *length = static_cast<int>(n);
    return 0;
}

// A count call: the host's number of records, unless "counts" overrides it.
int count(const char* call, const Host& host, int records, int* length, int capacity, void* output)
{
    long value = number(host.get("counts"), call, records);
    std::vector<unsigned char> bytes;
    Packer(bytes, 4).i32(0, value);
    return answer(call, host, bytes, length, capacity, output);
}

int16_t inputId(int* length, const void* input)
{
    if (length == nullptr || *length < 2 || input == nullptr) {
        return 0;
    }
    unsigned char b[2];
    memcpy(b, input, 2);
    return static_cast<int16_t>(b[0] | (b[1] << 8));
}

}  // namespace

extern "C" {

int GetSmBiosDataVersion(int* length, int capacity, const void* input, void* output)
{
    // Every inventory pass, cached or not, asks for the version: it is read
    // from the host description only when that file changed (its path,
    // inode, size or modification time), not parsed at every call. An edit
    // is seen at the next call.
    struct VersionCache {
        std::mutex mutex;
        std::string key;
        bool present = false;
        long version = 0;
    };
    static VersionCache* cache = new VersionCache();  // never destroyed: used by threads until exit
    const std::string path = PlatformRoot::path(kHostFile);
    struct stat st;
    std::string key;
    if (stat(path.c_str(), &st) == 0) {
        key = path + "|" + std::to_string(st.st_ino) + "|" + std::to_string(st.st_size) + "|" +
              std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
    }
    bool present = false;
    long version = 0;
    bool known = false;
    {
        std::lock_guard<std::mutex> lock(cache->mutex);
        if (!key.empty() && key == cache->key) {
            present = cache->present;
            version = cache->version;
            known = true;
        }
    }
    if (!known) {
        Host parsed;
        present = parsed.root != nullptr;
        version = number(parsed.root, "version");
        std::lock_guard<std::mutex> lock(cache->mutex);
        cache->key = key;
        cache->present = present;
        cache->version = version;
    }
    if (!present) {
        return -1;  // no host description: no tables to version
    }
    std::vector<unsigned char> bytes(1, static_cast<unsigned char>(version));
    Host none(nullptr);  // the version call is never delayed: no description needed
    return answer("GetSmBiosDataVersion", none, bytes, length, capacity, output);
}

int GetCPUItems(int* length, int capacity, const void* input, void* output)
{
    Host host;
    return count("GetCPUItems", host, arraySize(host, "processors"), length, capacity, output);
}

int GetCPUInfo(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packCpus(host, bytes);
    return answer("GetCPUInfo", host, bytes, length, capacity, output);
}

int GetMemoryItems(int* length, int capacity, const void* input, void* output)
{
    Host host;
    return count("GetMemoryItems", host, arraySize(host, "dimms"), length, capacity, output);
}

int GetMemoryInfo(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packDimms(host, bytes, false);
    return answer("GetMemoryInfo", host, bytes, length, capacity, output);
}

int GetMemoryDetail(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> all;
    packDimms(host, all, true);
    // Input: first index and count (two ints); without it, every DIMM.
    int32_t range[2] = {0, static_cast<int32_t>(all.size() / SMBIOS_DIMM_DETAIL_RECORD_SIZE)};
    if (length != nullptr && *length >= 8 && input != nullptr) {
        memcpy(range, input, sizeof range);
    }
    size_t total = all.size() / SMBIOS_DIMM_DETAIL_RECORD_SIZE;
    size_t first = range[0] < 0 ? total : static_cast<size_t>(range[0]);
    size_t last = range[1] < 0 ? first : first + static_cast<size_t>(range[1]);
    first = first < total ? first : total;
    last = last < total ? last : total;
    std::vector<unsigned char> bytes(all.begin() + first * SMBIOS_DIMM_DETAIL_RECORD_SIZE,
                                     all.begin() + last * SMBIOS_DIMM_DETAIL_RECORD_SIZE);
    return answer("GetMemoryDetail", host, bytes, length, capacity, output);
}

int GetMemorySummary(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    if (host.get("memorySummary") != nullptr) {
        packSummary(host, bytes);
    }
    return answer("GetMemorySummary", host, bytes, length, capacity, output);
}

int GetSystemInfo(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packSystem(host, bytes);
    return answer("GetSystemInfo", host, bytes, length, capacity, output);
}

int GetBootOrderDevices(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packBootOrder(host, bytes);
    return answer("GetBootOrderDevices", host, bytes, length, capacity, output);
}

int GetPCIeItems(int* length, int capacity, const void* input, void* output)
{
    Host host;
    return count("GetPCIeItems", host, arraySize(host, "pcie"), length, capacity, output);
}

int GetPCIeAdapters(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packPcie(host, bytes);
    return answer("GetPCIeAdapters", host, bytes, length, capacity, output);
}

int GetMacAddressItems(int* length, int capacity, const void* input, void* output)
{
    Host host;
    return count("GetMacAddressItems", host, arraySize(host, "lom"), length, capacity, output);
}

int GetMacAddressList(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packLom(host, bytes);
    return answer("GetMacAddressList", host, bytes, length, capacity, output);
}

int GetMemoryStats(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packStats(host, "memoryStats", inputId(length, input), bytes);
    return answer("GetMemoryStats", host, bytes, length, capacity, output, true);
}

int GetProcessorStats(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packStats(host, "processorStats", inputId(length, input), bytes);
    return answer("GetProcessorStats", host, bytes, length, capacity, output, true);
}

int GetMotherboardStats(int* length, int capacity, const void* input, void* output)
{
    Host host;
    std::vector<unsigned char> bytes;
    packBoard(host, bytes);
    return answer("GetMotherboardStats", host, bytes, length, capacity, output);
}

}  // extern "C"
