// InventoryAgent: the hardware inventory names (processors, memory, PCI
// adapters, NICs, boot order, identity, statistics, the collection state)
// and the two writes that start the full inventory collection and its
// upload. One per connection, built by the inventory handler library and
// used on that connection's thread only. The SMBIOS cache, its version, the
// identity strings and the adapter table are process-wide: every access
// holds m_mutex. The agent owns its per-request data; the cache owns its
// heap buffers until the host's SMBIOS data version changes.
#pragma once

#include <pthread.h>

#include <map>
#include <string>
#include <vector>

#include "AdapterMacDatabase.h"
#include "DataAgent.h"
#include "DeviceInventory.h"

class DIMMId;
class GUIDataSocket;

class InventoryAgent : public DataAgent {
public:
    explicit InventoryAgent(DataHandler& handler);
    ~InventoryAgent() override;

    int initialize() override;
    int preProcessGet(std::string& name, std::string& extra) override;
    int processGet() override;
    int postProcessGet(ConnectionHandler& connection) override;
    int preProcessSet(std::string& name, TokenMap& arguments) override;
    int processSet() override { return 1; }
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override;

    // Every get name the agent serves, and the two writable names; the
    // handler library registers them all.
    static const std::vector<const char*>& propertyNames();

    // The number between the first "[" and the next "]" (strict decimal);
    // 0 without a bracket pair or for anything else.
    int extractId(const std::string& extra);

    // The DIMM table of `platform` (owned by the caller), or null when the
    // platform has none. `sampleLocation`, a DIMM name the host reports,
    // settles the platform whose hosts use two naming schemes.
    static DIMMId* dimmName2Id(PLATFORM platform, const char* sampleLocation = nullptr);

    // --- SMBIOS sources: fetches fill the process-wide cache (caller holds
    // m_mutex; each sets status 2 and throws ProcessingException on
    // failure); posts write one reply. Public for the tests and fuzzers,
    // which feed records straight into the cache. ---
    void getCpuInfo();
    void getMemory();
    void getMemoryDetail();
    void getMemorySummary();
    void getSystemInfo();
    void getBootDevice();
    void getPCIinfo();
    void getLomMacList();
    void getMemoryStats();
    void getProcessorStats();
    void getMotherboardStats();
    void postCpuInfo(GUIDataSocket& socket);
    void postCpuCoreInfo(GUIDataSocket& socket);
    void postMemory(GUIDataSocket& socket);
    void postMemoryDetail(GUIDataSocket& socket);
    void postMemorySummary(GUIDataSocket& socket);
    void postBootOrderDeviceList(GUIDataSocket& socket, bool tarqFormat);
    void postPCIinfo(GUIDataSocket& socket);
    void postLomMacAddrList(GUIDataSocket& socket);
    void postMemoryStats(GUIDataSocket& socket);
    void postProcessorStats(GUIDataSocket& socket);
    void postMotherboardStats(GUIDataSocket& socket);
    void postUUID(GUIDataSocket& socket);
    void postInventoryStatus(GUIDataSocket& socket);

    // Identity strings, filled once per process (caller holds m_mutex).
    const char* getProductName();
    const char* getProductId();
    const char* getSerialNumber();
    // The current firmware of the adapter in PCI slot `slot` from the card
    // utility and the management-processor tool; 1 when found (written to
    // `out`, at most `outSize` - 1 characters). The answer per slot is kept
    // (found or not) until forgetPciFirmware.
    int getpciFwVersion(const char* slot, char* out, size_t outSize);
    // Forgets the cached firmware version of the card in `slot` (every card
    // for -1): after a firmware activation or update, a changed card
    // listing, a new SMBIOS data version. Any thread.
    static void forgetPciFirmware(int slot);
    // The local time as "%Y-%m-%dT%X".
    static void getTime(char* out, size_t outSize);

    // Cached data for tests and fuzzers: replaces one cached buffer (a copy
    // of `size` bytes holding `count` records). Caller holds m_mutex.
    enum CacheSlot { kCpu, kMemory, kMemoryDetail, kSummary, kPcie, kLom, kSystem, kBoot, kCacheSlots };
    static void setCached(CacheSlot slot, const void* data, size_t size, int count);
    // Drops the whole cache and the identity strings, as a version change
    // does, and forgets the version (tests). Takes m_mutex itself.
    static void resetCache();
    static unsigned char getCachedVersion();
    static void setCachedVersion(unsigned char version);

    // Longest state word of the collection's status file; longer words are
    // not a state (see postInventoryStatus).
    static const size_t kMaxStateWord = 32;

    // Source flags raised by preProcessGet.
    enum Source {
        kSrcCpu,
        kSrcProcessorStats,
        kSrcMemoryStats,
        kSrcBoardStats,
        kSrcMemory,
        kSrcMemoryDetail,
        kSrcMemorySummary,
        kSrcSystemInfo,
        kSrcBootDevice,
        kSrcPcie,
        kSrcAdapterMac,
        kSrcLom,
        kSrcPsu,
        kSrcHdd,
        kSrcLocalDisks,
        kSrcGpu,
        kSourceCount
    };

    // Guards everything process-wide above. Held for a whole SMBIOS pass.
    static pthread_mutex_t m_mutex;

private:
    // The tool runs behind getpciFwVersion: false when a tool could not be
    // started (nothing to keep), else true with `version` ("" for none).
    static bool lookupPciFirmware(const std::string& slot, std::string& version);
    int processSmBiosDataGetAndPost(GUIDataSocket& socket);
    void refreshSmBiosVersion();
    // One requested name with its argument text and, for "inventoryGPU",
    // its slot and mode. Each request keeps its own arguments, so a get of
    // "inventoryGPU[0 gpuInfo],inventoryGPU[0 card]" answers both forms
    // (one process-wide mode would answer the last form twice).
    struct Requested {
        std::string name;
        std::string extra;
        unsigned short gpuSlot;
        std::string gpuMode;
    };
    void writeSmBiosReply(const Requested& request, GUIDataSocket& socket);
    void writeOtherReply(const Requested& request, GUIDataSocket& socket);
    // The first word of the status file ("" when missing or not a state).
    std::string collectionState();
    bool collectionRunning();
    // Runs a controller validator with the arguments; true when it accepts.
    bool validate(const char* tool, const std::vector<std::string>& arguments);
    void startCollection();
    void startUpload();
    void freeCacheLocked();

    std::vector<Requested> m_requested;
    bool m_sources[kSourceCount];
    int m_memoryStatId;
    int m_processorStatId;
    std::string m_protocol, m_ipAddress, m_path, m_user, m_password;
    bool m_refresh;
    bool m_upload;

    // Statistics of the current request: allocated only by a request that
    // reads them and released when the next request starts, so a connection
    // never holds their 10 KiB between requests.
    static const int kMaxMemoryStats = 96;
    static const int kMaxProcessorStats = 4;
    std::vector<unsigned char> m_memoryStats;  // kMaxMemoryStats records of 100 bytes once read
    int m_memoryStatCount;
    std::vector<unsigned char> m_processorStats;  // kMaxProcessorStats records of 100 bytes once read
    int m_processorStatCount;
    unsigned char m_boardStats[128];
    bool m_boardStatsValid;
    DeviceInventory m_devices;               // daemon, sensor, disk and TPM sources of this connection
    AdapterMacDatabase m_macDb;              // this connection's slot argument and mode; its table is process-wide
    std::vector<unsigned char> m_bootOrder;  // this request's copy of the boot order buffer
    std::string m_uuid;                      // 32 hex digits, or the stored text after a failed read
};
