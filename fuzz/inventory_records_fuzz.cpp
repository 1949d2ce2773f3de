// Feeds arbitrary bytes as the SMBIOS inventory library's records through
// the inventory agent's replies: whatever the records hold (strings without
// terminators, any counts, any boot device counts), the reply stays
// well-formed XML and nothing is read outside the records. The first byte
// picks the record kind; the rest are the records, counted as the fetch
// counts them (whole records only).
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ConnectionHandler.h"
#include "DataHandler.h"
#include "InventoryAgent.h"
#include "fuzz_connection.h"
#include "fuzz_xml_balance.h"
#include "smbios_inventory.h"

namespace {

fuzzconn::AgentConnection<InventoryAgent>* on = nullptr;

struct Kind {
    InventoryAgent::CacheSlot slot;
    size_t recordSize;
    void (InventoryAgent::*post)(GUIDataSocket&);
};
const Kind kKinds[] = {
    {InventoryAgent::kCpu, SMBIOS_CPU_RECORD_SIZE, &InventoryAgent::postCpuInfo},
    {InventoryAgent::kCpu, SMBIOS_CPU_RECORD_SIZE, &InventoryAgent::postCpuCoreInfo},
    {InventoryAgent::kMemory, SMBIOS_DIMM_RECORD_SIZE, &InventoryAgent::postMemory},
    {InventoryAgent::kMemoryDetail, SMBIOS_DIMM_DETAIL_RECORD_SIZE, &InventoryAgent::postMemoryDetail},
    {InventoryAgent::kSummary, SMBIOS_MEMORY_SUMMARY_SIZE, &InventoryAgent::postMemorySummary},
    {InventoryAgent::kPcie, SMBIOS_PCIE_RECORD_SIZE, &InventoryAgent::postPCIinfo},
    {InventoryAgent::kLom, SMBIOS_LOM_RECORD_SIZE, &InventoryAgent::postLomMacAddrList},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (on == nullptr) {
        fuzzconn::setUp("inventory_records", GDS_SIM_ROOT);
        on = new fuzzconn::AgentConnection<InventoryAgent>();
    }
    if (size < 1 || size > 65536) {
        return 0;
    }
    unsigned pick = data[0] % (sizeof kKinds / sizeof kKinds[0] + 2);
    const uint8_t* records = data + 1;
    size_t length = size - 1;
    GUIDataSocket& socket = on->socket();
    InventoryAgent* agent = on->agent;
    pthread_mutex_lock(&InventoryAgent::m_mutex);
    if (pick < sizeof kKinds / sizeof kKinds[0]) {
        const Kind& k = kKinds[pick];
        int count = static_cast<int>(length / k.recordSize);
        if (count > 0) {
            InventoryAgent::setCached(k.slot, records, count * k.recordSize, count);
        }
        (agent->*k.post)(socket);
    } else {
        // The boot order buffer: the count at its start is checked as the
        // fetch checks it; a bad count fails the fetch (no reply).
        std::vector<uint8_t> buffer(SMBIOS_BOOT_ORDER_SIZE, 0);
        memcpy(buffer.data(), records, length < buffer.size() ? length : buffer.size());
        int32_t count = 0;
        memcpy(&count, buffer.data(), 4);
        int whole = length >= 4 ? static_cast<int>((length - 4) / SMBIOS_BOOT_RECORD_SIZE) : 0;
        if (count >= 0 && count <= 15 && length >= 4) {
            InventoryAgent::setCached(InventoryAgent::kBoot, buffer.data(), buffer.size(),
                                      whole < count ? whole : count);
            agent->getBootDevice();  // takes the cached buffer
            agent->postBootOrderDeviceList(socket, pick % 2 == 0);
        }
    }
    pthread_mutex_unlock(&InventoryAgent::m_mutex);
    InventoryAgent::resetCache();
    std::string reply = on->drain();
    if (!fuzzxml::balanced(reply)) {
        abort();
    }
    return 0;
}
