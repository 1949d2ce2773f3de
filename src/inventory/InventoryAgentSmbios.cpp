// The inventory agent's SMBIOS sources: the process-wide cache of the SMBIOS
// inventory library's records, the fetches that fill it, the replies, the
// identity strings and the PCI firmware lookup. Everything here runs inside
// the SMBIOS pass, under InventoryAgent::m_mutex.
#include "InventoryAgent.h"

#include <sys/wait.h>
#include <unistd.h>

#include <strings.h>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>

#include "AIMClient.h"
#include "ConnectionHandler.h"
#include "DIMMId.h"
#include "DataHandler.h"
#include "GUIDataServer.h"
#include "GUIDataSocket.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "ToolFilter.h"
#include "ToolRun.h"
#include "safeexec.h"
#include "smbios_inventory.h"

namespace {

// The process-wide cache (pCPUInfo, pMemoryInfo, pMemoryDetailInfo,
// pSummaryMemory, pPCIeAdapter, pLOMAddressData, pSystemInfo, pBootDevice
// with iCPUItems, iDIMMItems, iPCIeItems, iMacAdressItems): one heap buffer
// and its record count per slot. Memory and memory detail each keep the
// count of whole records they hold, so neither is ever read past its end.
struct Cached {
    unsigned char* data;
    int count;
};
Cached g_cache[InventoryAgent::kCacheSlots];
unsigned char g_cachedSmVersion = 0;

// The PCI firmware lookups per slot text ("" when none was found), and two
// counters: lookups started, and the last lookup started before the latest
// forgetPciFirmware. Own lock: an adapter action forgets a card without
// waiting for an inventory page.
std::mutex g_firmwareMutex;
std::map<std::string, std::string> g_firmware;
uint64_t g_firmwareLookups = 0;
uint64_t g_firmwareForgotten = 0;

// Identity strings, filled on first use and kept while non-empty.
char g_platformName[64];
char g_productId[64];
char g_serialNumber[64];

// Counts above this are not a host's inventory (and would overflow the
// allocation on a 32-bit controller): the fetch fails.
const int kMaxRecords = 4096;

const char kCardUtil[] = "/usr/local/bin/cardutil";
const char kMpTool[] = "/opt/flash/halvric/bin/mptool";

typedef int (*SmbiosCall)(int*, int, const void*, void*);

// One cached list fetch: calls, record size and the texts of each step.
struct ListFetch {
    InventoryAgent::CacheSlot slot;
    const char* operation;
    SmbiosCall countCall;
    SmbiosCall recordsCall;
    int recordSize;
    bool rangeInput;  // the records call takes first index and count
    const char* countMessage;
    const char* recordsMessage;
    const char* cachedMessage;
    const char* allocMessage;
    const char* exception;
};
const ListFetch kCpuFetch = {InventoryAgent::kCpu,
                             "getCpuInfo",
                             GetCPUItems,
                             GetCPUInfo,
                             SMBIOS_CPU_RECORD_SIZE,
                             false,
                             "%s: GetCPUItems returned %i\n",
                             "%s: GetCPUInfo returned %i\n",
                             "InventoryAgent::processGet: Using cached CPUInfo.\n",
                             "%s: Failed to allocate memory pCPUInfo\n",
                             "Failed processing CPU inventory request"};
const ListFetch kMemoryFetch = {InventoryAgent::kMemory,
                                "getMemory",
                                GetMemoryItems,
                                GetMemoryInfo,
                                SMBIOS_DIMM_RECORD_SIZE,
                                false,
                                "%s: GetMemoryItems returned %i\n",
                                "%s: GetMemoryInfo returned %i\n",
                                "InventoryAgent::processGet: Using cached MemoryInfo.\n",
                                "%s: Failed to malloc pMemoryInfo\n",
                                "Failed processing MemoryInfo request"};
const ListFetch kMemoryDetailFetch = {InventoryAgent::kMemoryDetail,
                                      "getMemoryDetail",
                                      GetMemoryItems,
                                      GetMemoryDetail,
                                      SMBIOS_DIMM_DETAIL_RECORD_SIZE,
                                      true,
                                      "%s: GetMemoryItems returned %i\n",
                                      "%s: GetMemoryDetail returned %i\n",
                                      "InventoryAgent::processGet: Using cached MemoryDetail.\n",
                                      "%s: GetMemoryDetail Malloc exception\n",
                                      "Failed processing MemoryInfo request"};
const ListFetch kPcieFetch = {InventoryAgent::kPcie,
                              "getPCIinfo",
                              GetPCIeItems,
                              GetPCIeAdapters,
                              SMBIOS_PCIE_RECORD_SIZE,
                              false,
                              "%s: GetPCIeAdapterItems returned %i\n",
                              "%s: GetPCIeAdapters returned %i\n",
                              "InventoryAgent::getPCIinfo: Using cached PCIeAdapters.\n",
                              "%s: Failed to allocate memory to pPCIeAdapter\n",
                              "Failed to process PCIeAdaptersInfo request"};
const ListFetch kLomFetch = {InventoryAgent::kLom,
                             "getLomMacList",
                             GetMacAddressItems,
                             GetMacAddressList,
                             SMBIOS_LOM_RECORD_SIZE,
                             false,
                             "%s: GetMACadress items returned %i\n",
                             "%s: pLOMAddressData returned %i\n",
                             "InventoryAgent::getLomMacList: Using cached GetMacAddressList.\n",
                             "%s: Failed to allocatte memory to pLOMAddressData\n",
                             "Failed to process GetMacAddressList request"};

// A NUL-padded field: its text up to the first NUL or the field's end.
std::string field(const unsigned char* record, size_t offset, size_t size)
{
    const char* p = reinterpret_cast<const char*>(record + offset);
    return std::string(p, strnlen(p, size));
}

int32_t le32(const unsigned char* record, size_t offset)
{
    unsigned char b[4];
    memcpy(b, record + offset, 4);
    return static_cast<int32_t>(static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) |
                                (static_cast<uint32_t>(b[2]) << 16) | (static_cast<uint32_t>(b[3]) << 24));
}

unsigned le16(const unsigned char* record, size_t offset)
{
    return static_cast<unsigned>(record[offset]) | (static_cast<unsigned>(record[offset + 1]) << 8);
}

unsigned be16(const unsigned char* record, size_t offset)
{
    return (static_cast<unsigned>(record[offset]) << 8) | static_cast<unsigned>(record[offset + 1]);
}

void freeSlot(Cached& c)
{
    free(c.data);
    c.data = nullptr;
    c.count = 0;
}

// Product names of appliances by appliance id: ids compared on their first
// `compare` characters (these ids and names are this system's own).
struct Appliance {
    const char* id;
    size_t compare;
    const char* name;
};
const Appliance kAppliances[] = {
    {"APL-NX100", 9, "Nexlo Appliance 100"},
    {"APL-NX200", 9, "Nexlo Appliance 200"},
    {"APLX", 4, "Nexlo Appliance"},
};

// ProductNameCfgTable: product key to product name, 69 filled rows and an
// empty row that ends the search. The keys are "GDS-<SERIES>-<FORM>" and
// the names "<Series> <form name>", for every series and form below.
struct ProductRow {
    char key[64];
    char name[64];
};
const char* const kSeries[] = {"DRAVON", "DRAVON2U", "ZENTH",   "KESTIN",  "MORLAC",   "PALLIX1", "PALLIX2", "RUSKEL",
                               "TOVREL", "QUENTAR",  "VORSHA1", "VORSHA2", "NIMBREL1", "ONDRIK",  "FENLOW",  "CASTREL",
                               "GREFF1", "GREFF2",   "LURVEN",  "WESCAL",  "HALDOR",   "ISVIK",   "BRENNIC"};
const char* const kForms[][2] = {{"R1", "1U Rack Server"}, {"R2", "2U Rack Server"}, {"B1", "Blade Server"}};

const ProductRow* productNameCfgTable()
{
    static ProductRow table[70];
    static bool filled = false;  // filled under InventoryAgent::m_mutex
    if (!filled) {
        int row = 0;
        for (const char* series : kSeries) {
            for (const auto& form : kForms) {
                snprintf(table[row].key, sizeof table[row].key, "GDS-%s-%s", series, form[0]);
                std::string pretty(series);
                for (size_t i = 1; i < pretty.size(); i++) {
                    pretty[i] = static_cast<char>(tolower(static_cast<unsigned char>(pretty[i])));
                }
                snprintf(table[row].name, sizeof table[row].name, "%s %s", pretty.c_str(), form[1]);
                row++;
            }
        }
        filled = true;
    }
    return table;
}

}  // namespace

// --- the cache ---

void InventoryAgent::freeCacheLocked()
{
    for (Cached& c : g_cache) {
        freeSlot(c);
    }
    forgetPciFirmware(-1);  // a new SMBIOS data version may mean other cards
}

void InventoryAgent::setCached(CacheSlot slot, const void* data, size_t size, int count)
{
    freeSlot(g_cache[slot]);
    g_cache[slot].data = static_cast<unsigned char*>(calloc(size > 0 ? size : 1, 1));
    if (g_cache[slot].data != nullptr && size > 0) {
        memcpy(g_cache[slot].data, data, size);
    }
    g_cache[slot].count = count;
}

void InventoryAgent::resetCache()
{
    pthread_mutex_lock(&m_mutex);
    for (Cached& c : g_cache) {
        freeSlot(c);
    }
    g_cachedSmVersion = 0;
    forgetPciFirmware(-1);
    g_platformName[0] = g_productId[0] = g_serialNumber[0] = '\0';
    pthread_mutex_unlock(&m_mutex);
}

unsigned char InventoryAgent::getCachedVersion()
{
    return g_cachedSmVersion;
}

void InventoryAgent::setCachedVersion(unsigned char version)
{
    g_cachedSmVersion = version;
}

// The cached fetch shared by processors, memory, memory detail, PCI
// adapters and LOM addresses.
static void fetchList(const ListFetch& f, AComponentLog& log, int& status)
{
    log.logTrace("InventoryAgent::%s\n", f.operation);
    Cached& c = g_cache[f.slot];
    if (c.data != nullptr) {
        log.logTrace("%s", f.cachedMessage);
        return;
    }
    int count = 0;
    int length = 0;
    int rc = f.countCall(&length, 4, nullptr, &count);
    if (rc != 0 || length != 4 || count < 0 || count > kMaxRecords) {
        log.logError(f.countMessage, f.operation, rc != 0 ? rc : count);
        status = 2;
        throw ProcessingException("%s", f.exception);
    }
    if (count == 0) {
        return;
    }
    size_t size = static_cast<size_t>(count) * static_cast<size_t>(f.recordSize);
    unsigned char* data = static_cast<unsigned char*>(calloc(size, 1));
    if (data == nullptr) {
        log.logError(f.allocMessage, f.operation);
        status = 2;
        throw ProcessingException("%s", f.exception);
    }
    int32_t range[2] = {0, count};
    length = f.rangeInput ? static_cast<int>(sizeof range) : 0;
    rc = f.recordsCall(&length, static_cast<int>(size), f.rangeInput ? range : nullptr, data);
    if (rc != 0 || length < 0) {
        free(data);
        c.data = nullptr;
        c.count = 0;
        log.logError(f.recordsMessage, f.operation, rc);
        status = 2;
        throw ProcessingException("%s", f.exception);
    }
    // Only whole records that the library returned count: a count that
    // disagrees with the bytes written never makes the replies read zeroes
    // as records or past the buffer.
    int whole = static_cast<int>(static_cast<size_t>(length) / static_cast<size_t>(f.recordSize));
    c.data = data;
    c.count = whole < count ? whole : count;
}

void InventoryAgent::getCpuInfo()
{
    fetchList(kCpuFetch, m_log, m_status);
}

void InventoryAgent::getMemory()
{
    fetchList(kMemoryFetch, m_log, m_status);
}

void InventoryAgent::getMemoryDetail()
{
    fetchList(kMemoryDetailFetch, m_log, m_status);
}

void InventoryAgent::getPCIinfo()
{
    fetchList(kPcieFetch, m_log, m_status);
}

void InventoryAgent::getLomMacList()
{
    fetchList(kLomFetch, m_log, m_status);
}

void InventoryAgent::getMemorySummary()
{
    Cached& c = g_cache[kSummary];
    if (c.data != nullptr) {
        m_log.logTrace("InventoryAgent::getMemorySummary: Using cached MemorySummary.\n");
        return;
    }
    unsigned char* data = static_cast<unsigned char*>(calloc(SMBIOS_MEMORY_SUMMARY_SIZE, 1));
    if (data == nullptr) {
        m_status = 2;
        throw ProcessingException("Failed processing MemorySummary request");
    }
    int length = 0;
    int rc = GetMemorySummary(&length, SMBIOS_MEMORY_SUMMARY_SIZE, nullptr, data);
    if (rc != 0) {
        free(data);
        m_log.logError("%s: GetMemorySummary returned %i\n", "getMemorySummary", rc);
        m_status = 2;
        throw ProcessingException("Failed processing MemorySummary request");
    }
    if (length <= 0) {
        // Nothing to show; not cached, so the next request asks again.
        m_log.logError("%s: GetMemorySummary returned %i, but outputSize is 0\n", "getMemorySummary", rc);
        free(data);
        return;
    }
    c.data = data;
    c.count = 1;
}

void InventoryAgent::getBootDevice()
{
    Cached& c = g_cache[kBoot];
    if (c.data != nullptr) {
        m_log.logTrace("InventoryAgent::getBootDevice: Using cached BootOrderDevices.\n");
    } else {
        unsigned char* data = static_cast<unsigned char*>(calloc(SMBIOS_BOOT_ORDER_SIZE, 1));
        if (data == nullptr) {
            m_log.logError("Failed to allocate memory to pBootDevice\n");
            m_status = 2;
            throw ProcessingException("Failed processing getBootDevice request");
        }
        int length = 0;
        int rc = GetBootOrderDevices(&length, SMBIOS_BOOT_ORDER_SIZE, nullptr, data);
        int count = length >= 4 ? le32(data, 0) : -1;
        if (rc != 0 || count < 0 || count > 15) {
            m_log.logError("GetBootOrderDevices failed, ret=%i, count=%i\n", rc, count);
            free(data);
            m_status = 2;
            throw ProcessingException("Failed processing getBootDevice request");
        }
        // Only whole records returned count.
        int whole = (length - 4) / SMBIOS_BOOT_RECORD_SIZE;
        c.data = data;
        c.count = whole < count ? whole : count;
    }
    // The boot order is written after the SMBIOS pass, outside the lock:
    // this request keeps its own copy so another connection may drop the
    // cache meanwhile.
    m_bootOrder.assign(c.data, c.data + SMBIOS_BOOT_ORDER_SIZE);
    int32_t count = c.count;
    unsigned char b[4] = {static_cast<unsigned char>(count), 0, 0, 0};
    memcpy(m_bootOrder.data(), b, 4);
}

void InventoryAgent::getSystemInfo()
{
    Cached& c = g_cache[kSystem];
    bool ok = true;
    if (c.data != nullptr) {
        m_log.logTrace("InventoryAgent::getSystemInfo: Using cached GetSystemInfo.\n");
    } else {
        unsigned char* data = static_cast<unsigned char*>(calloc(SMBIOS_SYSTEM_RECORD_SIZE, 1));
        if (data == nullptr) {
            m_log.logError("%s: Failed to allocate memory pSystemInfo\n", "getSystemInfo");
            m_status = 2;
            throw ProcessingException("Failed processing getSystemInfo request");
        }
        int length = 0;
        int rc = GetSystemInfo(&length, SMBIOS_SYSTEM_RECORD_SIZE, nullptr, data);
        // A record without its UUID counts as a failed call.
        if (rc != 0 || length < SMBIOS_SYSTEM_RECORD_SIZE) {
            free(data);
            ok = false;
        } else {
            c.data = data;
            c.count = 1;
        }
    }
    AIMClient& aim = m_dataHandler->getConnectionHandler()->getServer().getAIMClient();
    aim.setProperty("pm_productname", getProductId(), true);
    aim.setProperty("pm_sysserialnum", getSerialNumber(), true);
    if (!ok) {
        char stored[AIMClient::kMaxValue + 1] = "";
        aim.getProperty("pm_uuid", stored);
        m_uuid = stored;
        return;
    }
    char hex[33];
    for (int i = 0; i < 16; i++) {
        snprintf(hex + 2 * i, 3, "%02X", c.data[SMBIOS_SYSTEM_UUID_OFFSET + i]);
    }
    m_uuid = hex;
    aim.setProperty("pm_uuid", hex, true);
}

void InventoryAgent::getMemoryStats()
{
    unsigned char input[2] = {static_cast<unsigned char>(m_memoryStatId),
                              static_cast<unsigned char>(m_memoryStatId >> 8)};
    int length = 2;
    m_memoryStatCount = 0;
    m_memoryStats.assign(static_cast<size_t>(kMaxMemoryStats) * SMBIOS_STAT_RECORD_SIZE, 0);
    int rc = GetMemoryStats(&length, static_cast<int>(m_memoryStats.size()), input, m_memoryStats.data());
    if (rc != 0) {
        printf("InventoryAgent: unable to get Memory Stat info, GetMemoryStats returned %i\n", rc);
        return;
    }
    int n = length > 0 ? length / SMBIOS_STAT_RECORD_SIZE : 0;
    m_memoryStatCount = n < kMaxMemoryStats ? n : kMaxMemoryStats;
}

void InventoryAgent::getProcessorStats()
{
    unsigned char input[2] = {0, 0};
    int length = 2;
    m_processorStatCount = 0;
    m_processorStats.assign(static_cast<size_t>(kMaxProcessorStats) * SMBIOS_STAT_RECORD_SIZE, 0);
    int rc = GetProcessorStats(&length, static_cast<int>(m_processorStats.size()), input, m_processorStats.data());
    if (rc != 0) {
        printf("InventoryAgent: unable to get Memory Stat info, GetProcessorStats returned %i\n", rc);
        return;
    }
    int n = length > 0 ? length / SMBIOS_STAT_RECORD_SIZE : 0;
    m_processorStatCount = n < kMaxProcessorStats ? n : kMaxProcessorStats;
}

void InventoryAgent::getMotherboardStats()
{
    unsigned char input[2] = {0, 0};
    int length = 2;
    memset(m_boardStats, 0, sizeof m_boardStats);
    int rc = GetMotherboardStats(&length, sizeof m_boardStats, input, m_boardStats);
    if (rc != 0) {
        printf("InventoryAgent: unable to get motherboard  info, GetMotherboardStats returned %i\n", rc);
        memset(m_boardStats, 0, sizeof m_boardStats);
    } else if (length < static_cast<int>(sizeof m_boardStats)) {
        memset(m_boardStats + (length > 0 ? length : 0), 0, sizeof m_boardStats - (length > 0 ? length : 0));
    }
}

// --- replies ---

void InventoryAgent::postCpuInfo(GUIDataSocket& socket)
{
    socket.writeString("<ProcessorList>");
    const Cached& c = g_cache[kCpu];
    for (int i = 0; c.data != nullptr && i < c.count; i++) {
        const unsigned char* r = c.data + static_cast<size_t>(i) * SMBIOS_CPU_RECORD_SIZE;
        std::string socketName = field(r, 0, 64);
        std::string status = field(r, 316, 40);
        bool absent = strcasecmp(status.c_str(), "Unpopulated") == 0;
        socket.writeString("<Processor>");
        if (socketName.size() > 3) {
            socket.writeSimpleElement("id", socketName.substr(3).c_str());
        }
        socket.writeSimpleElement("SocketDesignation", socketName.c_str());
        auto text = [&](const char* name, size_t offset, size_t size) {
            socket.writeSimpleElement(name, absent ? "N/A" : field(r, offset, size).c_str());
        };
        auto number = [&](const char* name, size_t offset) {
            if (absent) {
                socket.writeSimpleElement(name, "N/A");
            } else {
                socket.writeSimpleElement(name, static_cast<unsigned int>(le32(r, offset)));
            }
        };
        text("ProcessorManufacturer", 64, 64);
        text("ProcessorFamily", 128, 44);
        number("ThreadCount", 172);
        text("SerialNumber", 176, 64);
        text("ProcessorVersion", 240, 64);
        number("CurrentSpeed", 304);
        number("CoreCount", 308);
        number("CoreEnabled", 312);
        socket.writeSimpleElement("Status", status.c_str());
        number("MaxSpeed", 356);
        text("Signature", 360, 64);
        socket.writeString("</Processor>");
    }
    socket.writeString("</ProcessorList>");
}

void InventoryAgent::postCpuCoreInfo(GUIDataSocket& socket)
{
    int cores = 0, enabled = 0, threads = 0;
    const Cached& c = g_cache[kCpu];
    for (int i = 0; c.data != nullptr && i < c.count; i++) {
        const unsigned char* r = c.data + static_cast<size_t>(i) * SMBIOS_CPU_RECORD_SIZE;
        if (strcasecmp(field(r, 316, 40).c_str(), "Unpopulated") == 0) {
            continue;
        }
        // Sums wrap like the controller's ints would, without overflow traps.
        cores = static_cast<int>(static_cast<unsigned>(cores) + static_cast<unsigned>(le32(r, 308)));
        enabled = static_cast<int>(static_cast<unsigned>(enabled) + static_cast<unsigned>(le32(r, 312)));
        threads = static_cast<int>(static_cast<unsigned>(threads) + static_cast<unsigned>(le32(r, 172)));
    }
    socket.writeSimpleElement("numOfCores", cores);
    socket.writeSimpleElement("numOfCoresEnabled", enabled);
    socket.writeSimpleElement("numOfThreads", threads);
}

void InventoryAgent::postMemory(GUIDataSocket& socket)
{
    socket.writeString("<DIMMList>");
    const Cached& c = g_cache[kMemory];
    for (int i = 0; c.data != nullptr && i < c.count; i++) {
        const unsigned char* r = c.data + static_cast<size_t>(i) * SMBIOS_DIMM_RECORD_SIZE;
        socket.writeString("<DIMM>");
        socket.writeSimpleElement("Name", field(r, 0, 64).c_str());
        socket.writeSimpleElement("Capacity", field(r, 64, 64).c_str());
        socket.writeSimpleElement("Speed", field(r, 128, 64).c_str());
        socket.writeSimpleElement("MemoryType", field(r, 192, 64).c_str());
        socket.writeString("</DIMM>");
    }
    socket.writeString("</DIMMList>");
}

void InventoryAgent::postMemoryDetail(GUIDataSocket& socket)
{
    const Cached& c = g_cache[kMemoryDetail];
    std::string first = c.data != nullptr && c.count > 0 ? field(c.data, 0, 64) : "";
    PLATFORM platform = getPlatform();
    DIMMId* table = dimmName2Id(platform, first.c_str());
    socket.writeString("<DIMMList>");
    static const struct {
        const char* name;
        size_t offset, size;
    } kFields[] = {{"Name", 0, 64},           {"Capacity", 64, 64},          {"Speed", 128, 64},
                   {"MemoryType", 192, 64},   {"MemoryTypeDetail", 256, 32}, {"BankLocator", 288, 64},
                   {"Manufacturer", 352, 64}, {"SerialNumber", 416, 64},     {"AssetTag", 480, 64},
                   {"PartNumber", 544, 64},   {"Visibility", 608, 16},       {"Operability", 624, 16},
                   {"DataWidth", 640, 32}};
    for (int i = 0; c.data != nullptr && i < c.count; i++) {
        const unsigned char* r = c.data + static_cast<size_t>(i) * SMBIOS_DIMM_DETAIL_RECORD_SIZE;
        std::string name = field(r, 0, 64);
        int id = 999;
        if (table == nullptr || !table->getIdFromLocation(name, id)) {
            id = 999;
        }
        m_log.logTrace("PLATFORM = %d dimm=%s id=%d\n", static_cast<int>(platform), name.c_str(), id);
        socket.writeString("<DIMM>");
        socket.writeSimpleElement("id", id);
        for (const auto& f : kFields) {
            socket.writeSimpleElement(f.name, field(r, f.offset, f.size).c_str());
        }
        socket.writeString("</DIMM>");
    }
    socket.writeString("</DIMMList>");
    delete table;
}

void InventoryAgent::postMemorySummary(GUIDataSocket& socket)
{
    socket.writeString("<DIMMSummary>");
    const Cached& c = g_cache[kSummary];
    if (c.data != nullptr) {
        const unsigned char* r = c.data;
        const char* const names[] = {"MemorySpeed",     "TotalMemory",  "EffectiveMemory",
                                     "RedundantMemory", "FailedMemory", "IgnoredMemory"};
        for (size_t i = 0; i < 6; i++) {
            socket.writeSimpleElement(names[i], field(r, 32 * i, 32).c_str());
        }
        for (const auto& dimms : {std::make_pair("NumOfIgnoredDimms", 192), std::make_pair("NumOfFailedDimms", 194)}) {
            unsigned n = le16(r, static_cast<size_t>(dimms.second));
            socket.writeSimpleElement(dimms.first, n == 255 ? std::string("NA").c_str() : std::to_string(n).c_str());
        }
        socket.writeSimpleElement("MemoryRASPossible", field(r, 204, 44).c_str());
        socket.writeSimpleElement("MemoryConfiguration", field(r, 248, 32).c_str());
    }
    socket.writeString("</DIMMSummary>");
}

void InventoryAgent::postUUID(GUIDataSocket& socket)
{
    std::string text = m_uuid;
    if (text.size() == 32) {
        text = text.substr(0, 8) + "-" + text.substr(8, 4) + "-" + text.substr(12, 4) + "-" + text.substr(16, 4) + "-" +
               text.substr(20);
    }
    socket.writeSimpleElement("UUID", text.c_str());
}

namespace {
// The boot device types of the SMBIOS boot order records, with the names the
// two reply formats give them. A process-wide table: every connection has
// an inventory agent.
struct BootDeviceName {
    unsigned char type;
    const char* device;
    const char* order;
};
const BootDeviceName kBootDeviceNames[] = {
    {0, "System", "system-boot-order"},
    {1, "FDD", "fdd-order"},
    {2, "HDD", "hdd-order"},
    {3, "CD/DVD", "cd-order"},
    {6, "Network Device (PXE)", "network-device-order"},
    {8, "HDD", "hdd-order"},
    {16, "Internal EFI Shell", "internal-efi-shell"},
    {128, "BEV", "bev-order"},
};
}  // namespace

void InventoryAgent::postBootOrderDeviceList(GUIDataSocket& socket, bool tarqFormat)
{
    puts("post:PROP_SMBIOS_BOOT_ORDER_LIST");
    fflush(stdout);
    socket.writeString("<smbiosBootOrderList>");
    int count = m_bootOrder.size() == SMBIOS_BOOT_ORDER_SIZE ? le32(m_bootOrder.data(), 0) : 0;
    for (int i = 0; i < count && i < SMBIOS_BOOT_MAX_RECORDS; i++) {
        const unsigned char* r = m_bootOrder.data() + 4 + static_cast<size_t>(i) * SMBIOS_BOOT_RECORD_SIZE;
        const BootDeviceName* known = nullptr;
        for (const BootDeviceName& b : kBootDeviceNames) {
            if (b.type == r[0] && r[0] != 0) {
                known = &b;
            }
        }
        socket.writeString("<smbiosBootOrder>");
        socket.writeSimpleElement("name", known != nullptr ? known->device : "unknown device");
        if (tarqFormat) {
            socket.writeSimpleElement("type", known != nullptr ? known->order : "unknown-order");
            socket.writeSimpleElement("index", static_cast<unsigned int>(i + 1));
        }
        int devices = r[1] < SMBIOS_BOOT_MAX_DEVICES ? r[1] : SMBIOS_BOOT_MAX_DEVICES;
        for (int d = 0; d < devices; d++) {
            std::string name =
                field(r, 2 + static_cast<size_t>(d) * SMBIOS_BOOT_DEVICE_NAME_SIZE, SMBIOS_BOOT_DEVICE_NAME_SIZE);
            if (tarqFormat) {
                socket.writeString("<bootDevice>");
                socket.writeSimpleElement("name", name.c_str());
                socket.writeSimpleElement("serno", d + 1);
                socket.writeString("</bootDevice>");
            } else {
                socket.writeSimpleElement("bootDevice", name.c_str());
            }
        }
        socket.writeString("</smbiosBootOrder>");
    }
    socket.writeString("</smbiosBootOrderList>");
}

void InventoryAgent::postPCIinfo(GUIDataSocket& socket)
{
    socket.writeString("<PCIeAdapterList>");
    const Cached& c = g_cache[kPcie];
    for (int i = 0; c.data != nullptr && i < c.count; i++) {
        const unsigned char* r = c.data + static_cast<size_t>(i) * SMBIOS_PCIE_RECORD_SIZE;
        std::string slotText = field(r, 80, 64);
        std::string slot = slotText.rfind("SlotID:", 0) == 0 ? slotText.substr(7) : "UNKNOWN";
        char ids[4][8];
        for (int k = 0; k < 4; k++) {
            snprintf(ids[k], sizeof ids[k], "0x%04x", be16(r, static_cast<size_t>(2 * k)));
        }
        socket.writeString("<PCIeAdapter>");
        socket.writeSimpleElement("Slot", slot.c_str());
        socket.writeSimpleElement("VendorID", ids[0]);
        socket.writeSimpleElement("DeviceID", ids[1]);
        socket.writeSimpleElement("SubVendorID", ids[2]);
        socket.writeSimpleElement("SubDeviceID", ids[3]);
        socket.writeSimpleElement("OptionROMLoaded", static_cast<int>(le32(r, 208)));
        socket.writeSimpleElement("ProductName", field(r, 16, 64).c_str());
        std::string firmware = field(r, 144, 64);
        if (firmware == "N/A" && slot != "UNKNOWN" && strcasecmp(slot.c_str(), "M") != 0) {
            char found[64];
            if (getpciFwVersion(slot.c_str(), found, sizeof found) == 1) {
                firmware = found;
            }
        }
        socket.writeSimpleElement("fwVersion", firmware.c_str());
        socket.writeString("</PCIeAdapter>");
    }
    socket.writeString("</PCIeAdapterList>");
}

void InventoryAgent::postLomMacAddrList(GUIDataSocket& socket)
{
    socket.writeString("<LOMMacAddressList>");
    const Cached& c = g_cache[kLom];
    for (int i = 0; c.data != nullptr && i < c.count; i++) {
        const unsigned char* r = c.data + static_cast<size_t>(i) * SMBIOS_LOM_RECORD_SIZE;
        socket.writeString("<LOMMacAddress>");
        socket.writeSimpleElement("InterfaceName", field(r, 0, 24).c_str());
        socket.writeSimpleElement("MacAddress", field(r, 24, 18).c_str());
        socket.writeString("</LOMMacAddress>");
    }
    socket.writeString("</LOMMacAddressList>");
}

void InventoryAgent::getTime(char* out, size_t outSize)
{
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    if (outSize > 0 && strftime(out, outSize, "%Y-%m-%dT%X", &local) == 0) {
        out[0] = '\0';
    }
}

static void postStats(GUIDataSocket& socket, const char* list, const char* item, const unsigned char* records,
                      int count, int wanted)
{
    char now[80];
    InventoryAgent::getTime(now, sizeof now);
    socket.writeString((std::string("<") + list + ">").c_str());
    for (int i = 0; i < count; i++) {
        const unsigned char* r = records + static_cast<size_t>(i) * SMBIOS_STAT_RECORD_SIZE;
        int id = le32(r, 0);
        if (wanted != 0 && id != wanted) {
            continue;
        }
        socket.writeString((std::string("<") + item + ">").c_str());
        socket.writeSimpleElement("id", id);
        socket.writeSimpleElement("description", field(r, 68, 32).c_str());
        socket.writeSimpleElement("temperature", field(r, 4, 64).c_str());
        socket.writeSimpleElement("timeCollected", now);
        socket.writeString((std::string("</") + item + ">").c_str());
    }
    socket.writeString((std::string("</") + list + ">").c_str());
}

void InventoryAgent::postMemoryStats(GUIDataSocket& socket)
{
    postStats(socket, "memoryStats", "memory", m_memoryStats.data(), m_memoryStatCount, m_memoryStatId);
}

void InventoryAgent::postProcessorStats(GUIDataSocket& socket)
{
    postStats(socket, "processorStats", "processor", m_processorStats.data(), m_processorStatCount, m_processorStatId);
}

void InventoryAgent::postMotherboardStats(GUIDataSocket& socket)
{
    char now[80];
    getTime(now, sizeof now);
    socket.writeString("<motherboardStats>");
    socket.writeSimpleElement("timeCollected", now);
    const char* const names[] = {"consumedPower", "inputCurrent", "inputVoltage", "ambientTemp",
                                 "frontTemp",     "iohub1Temp",   "iohub2Temp",   "rearTemp"};
    for (size_t i = 0; i < 8; i++) {
        socket.writeSimpleElement(
            names[i], field(m_boardStats, i * SMBIOS_BOARD_STAT_FIELD_SIZE, SMBIOS_BOARD_STAT_FIELD_SIZE).c_str());
    }
    socket.writeString("</motherboardStats>");
}

// --- identity ---

static void fillFromEnv(char* target, const char* variable)
{
    if (target[0] == '\0') {
        const char* value = getenv(variable);
        snprintf(target, 64, "%s", value != nullptr ? value : "");
    }
}

const char* InventoryAgent::getProductId()
{
    fillFromEnv(g_productId, "product_name");
    return g_productId;
}

const char* InventoryAgent::getSerialNumber()
{
    fillFromEnv(g_serialNumber, "serial_number");
    return g_serialNumber;
}

const char* InventoryAgent::getProductName()
{
    if (g_platformName[0] != '\0') {
        return g_platformName;
    }
    const char* product = getenv("product_name");
    if (product == nullptr) {
        return g_platformName;
    }
    FILE* f = fopen(PlatformRoot::path("/mnt/jffs2/applianceName").c_str(), "r");
    if (f != nullptr) {
        char line[64] = "";
        if (fgets(line, sizeof line, f) == nullptr) {
            line[0] = '\0';
        }
        fclose(f);
        line[strcspn(line, "\n")] = '\0';
        snprintf(g_platformName, sizeof g_platformName, "%s", line[0] != '\0' ? line : "Unknown Appliance");
        return g_platformName;
    }
    for (const Appliance& a : kAppliances) {
        if (strncmp(product, a.id, a.compare) == 0) {
            snprintf(g_platformName, sizeof g_platformName, "%s", a.name);
            return g_platformName;
        }
    }
    char key[64] = "";
    snprintf(key, sizeof key, "%s", product);
    for (const ProductRow* row = productNameCfgTable(); row->key[0] != '\0'; row++) {
        if (memcmp(row->key, key, sizeof key) == 0) {
            snprintf(g_platformName, sizeof g_platformName, "%s", row->name);
            break;
        }
    }
    return g_platformName;
}

// --- PCI firmware ---

// Beyond the original, which lists the card into a shared temporary file and
// runs six shells and their filters for every card on every page: the card
// utility and the management-processor tool are started directly (ToolRun),
// their output filtered in the server (ToolFilter), and each slot's answer
// is kept until something can have changed it (forgetPciFirmware). A cached
// inventory page starts no process at all.
int InventoryAgent::getpciFwVersion(const char* slot, char* out, size_t outSize)
{
    std::string slotText = slot != nullptr ? slot : "";
    size_t sioc = slotText.find("SIOC");
    if (sioc != std::string::npos) {
        slotText.erase(sioc, 4);
    }
    // The slot text comes from the host's tables and the values below from
    // tool output: each is checked before it stands in a command line.
    if (!system_check_user_input(slotText.c_str(), "general_rule") || slotText.empty()) {
        return 0;
    }
    std::string version;
    uint64_t generation = 0;  // 0: the answer was kept
    {
        std::lock_guard<std::mutex> lock(g_firmwareMutex);
        auto it = g_firmware.find(slotText);
        if (it != g_firmware.end()) {
            version = it->second;
            generation = 0;
        } else {
            generation = ++g_firmwareLookups;
        }
    }
    if (generation != 0) {
        bool ran = lookupPciFirmware(slotText, version);
        std::lock_guard<std::mutex> lock(g_firmwareMutex);
        // Not kept when a tool could not be started, or when the answer was
        // forgotten while the tools ran (it may be from before the change).
        if (ran && g_firmwareForgotten < generation) {
            g_firmware[slotText] = version;
        }
    }
    if (version.empty() || outSize == 0) {
        return 0;
    }
    snprintf(out, outSize, "%s", version.c_str());
    return 1;
}

bool InventoryAgent::lookupPciFirmware(const std::string& slot, std::string& version)
{
    version.clear();
    // Controllers without the card utility have no adapters to ask.
    if (access(PlatformRoot::path(kCardUtil).c_str(), X_OK) != 0) {
        return true;
    }
    std::string listing;
    int rc = ToolRun::run((PlatformRoot::path(kCardUtil) + " -l " + slot).c_str(), listing);
    if (rc == -1) {
        return false;
    }
    if (rc != 0) {
        return true;  // no card the utility knows in this slot
    }
    // "grep KEY | awk -F': ' '{print $2}'", first line.
    auto value = [&](const std::string& key) {
        return ToolFilter::firstLine(ToolFilter::field(ToolFilter::grep(listing, key), ": ", 2));
    };
    std::string interface = value("virtual-eth-if");
    std::string asic = value("asic-name");
    std::string mac = asic.empty() ? "" : value(asic + "-mac");
    if (interface.empty() || mac.empty() || !system_check_user_input(interface.c_str(), "general_rule") ||
        !system_check_user_input(mac.c_str(), "general_rule")) {
        return true;
    }
    std::string output;
    rc = ToolRun::run(
        (PlatformRoot::path(kMpTool) + " -i " + interface + " " + mac + " vorn_getadapter yaml --detail").c_str(),
        output);
    if (rc == -1) {
        return false;
    }
    version = ToolFilter::firstLine(ToolFilter::field(ToolFilter::grep(output, "current-fw-version"), ": ", 2));
    return true;
}

void InventoryAgent::forgetPciFirmware(int slot)
{
    std::lock_guard<std::mutex> lock(g_firmwareMutex);
    g_firmwareForgotten = g_firmwareLookups;
    for (auto it = g_firmware.begin(); it != g_firmware.end();) {
        // The inventory's slot texts are the card utility's slot numbers
        // ("2"); anything else is forgotten with every card.
        char* end = nullptr;
        long number = strtol(it->first.c_str(), &end, 10);
        bool numeric = end != it->first.c_str() && *end == '\0';
        if (slot < 0 || !numeric || number == slot) {
            it = g_firmware.erase(it);
        } else {
            ++it;
        }
    }
}

DIMMId* InventoryAgent::dimmName2Id(PLATFORM platform, const char* sampleLocation)
{
    const char* model = DIMMId::modelFor(platform, sampleLocation);
    return model != nullptr ? new DIMMId(model) : nullptr;
}
