// The inventory agent's frame: names and source flags, the order of the
// reply, the SMBIOS pass under the process-wide lock with its version
// check, the collection state, and the refresh and upload writes. The
// SMBIOS sources themselves are in InventoryAgentSmbios.cpp.
#include "InventoryAgent.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ConnectionHandler.h"
#include "DIMMId.h"
#include "DataHandler.h"
#include "GUIDataSocket.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "SecurityException.h"
#include "safeexec.h"
#include "smbios_inventory.h"

pthread_mutex_t InventoryAgent::m_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

const char kStatusFile[] = "/var/inventory-all-status";
const char kCollectScript[] = "/etc/scripts/inventory-all.sh";
const char kUploadScript[] = "/etc/scripts/inventory-upload.sh";
// Command lines of the upload are at most this long; a longer one (only
// hostile arguments get there) is refused rather than cut, since a cut line
// could lose its " &" or end inside an escape.
const size_t kMaxCommandLine = 1024;

// Names served, with the source each raises (-1: none; the reply comes from
// the identity strings, the platform number or the status file) and whether
// its reply is written in the SMBIOS part of the reply.
struct NameInfo {
    const char* name;
    int source;
    bool smbios;
};
enum {
    kNone = -1,
};
const NameInfo kNames[] = {
    {"inventoryCPU", InventoryAgent::kSrcCpu, true},
    {"inventoryCPUCore", InventoryAgent::kSrcCpu, true},
    {"processorStats", InventoryAgent::kSrcProcessorStats, true},
    {"memoryStats", InventoryAgent::kSrcMemoryStats, true},
    {"motherboardStats", InventoryAgent::kSrcBoardStats, true},
    {"inventoryMemory", InventoryAgent::kSrcMemory, true},
    {"inventoryMemoryDetail", InventoryAgent::kSrcMemoryDetail, true},
    {"inventoryMemorySummary", InventoryAgent::kSrcMemorySummary, true},
    {"sysProductName", kNone, true},
    {"sysProductID", InventoryAgent::kSrcSystemInfo, true},
    {"sysSerialNum", InventoryAgent::kSrcSystemInfo, true},
    {"UUID", InventoryAgent::kSrcSystemInfo, true},
    {"smbiosBootOrderList", InventoryAgent::kSrcBootDevice, false},
    {"tarqSmbiosBootOrderList", InventoryAgent::kSrcBootDevice, false},
    {"inventoryPCI", InventoryAgent::kSrcPcie, true},
    {"AdapterMacAddressList", InventoryAgent::kSrcAdapterMac, true},
    {"lomMacAddressList", InventoryAgent::kSrcLom, true},
    {"inventoryPSU", InventoryAgent::kSrcPsu, false},
    {"inventoryHDD", InventoryAgent::kSrcHdd, false},
    {"tarqLocalDisks", InventoryAgent::kSrcLocalDisks, false},
    {"inventoryGPU", InventoryAgent::kSrcGpu, false},
    {"sysPlatform", kNone, false},
    {"platformSkuType", kNone, false},
    {"inventoryTPM", kNone, false},
    {"veskSecValidation", kNone, false},
    {"inventoryStatus", kNone, false},
};

const NameInfo* findName(const std::string& name)
{
    for (const NameInfo& n : kNames) {
        if (name == n.name) {
            return &n;
        }
    }
    return nullptr;
}

// Locks a pthread mutex for one scope, so no exit (exceptions included)
// leaves it held.
class ScopedLock {
public:
    explicit ScopedLock(pthread_mutex_t& m) : m_m(m) { pthread_mutex_lock(&m_m); }
    ~ScopedLock() { pthread_mutex_unlock(&m_m); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    pthread_mutex_t& m_m;
};

// The text between the first "[" and the next "]", or "" without a pair.
std::string bracketed(const std::string& extra)
{
    size_t open = extra.find('[');
    if (open == std::string::npos) {
        return "";
    }
    size_t close = extra.find(']', open + 1);
    return close == std::string::npos ? "" : extra.substr(open + 1, close - open - 1);
}

// A refused value as the error message shows it: at most 255 characters
// (the longest value the checks accept), so a huge argument cannot make the
// error reply longer than the reply's message room and cut its closing tag.
std::string echo(const std::string& value)
{
    return value.substr(0, 255);
}

}  // namespace

const std::vector<const char*>& InventoryAgent::propertyNames()
{
    static const std::vector<const char*> names = [] {
        std::vector<const char*> v;
        for (const NameInfo& n : kNames) {
            v.push_back(n.name);
        }
        v.push_back("inventoryRefresh");
        v.push_back("inventoryUpload");
        return v;
    }();
    return names;
}

InventoryAgent::InventoryAgent(DataHandler& handler)
    : DataAgent("InventoryAgent", handler),
      m_sources(),
      m_memoryStatId(0),
      m_processorStatId(0),
      m_refresh(false),
      m_upload(false),
      m_memoryStatCount(0),
      m_processorStatCount(0),
      m_boardStats(),
      m_boardStatsValid(false),
      m_devices(m_log),
      m_macDb(m_log)
{
    m_status = 1;
}

InventoryAgent::~InventoryAgent() = default;

int InventoryAgent::initialize()
{
    m_log.logTrace("InventoryAgent: %s\n", "initialize");
    for (bool& flag : m_sources) {
        flag = false;
    }
    m_refresh = false;
    m_upload = false;
    m_requested.clear();
    m_bootOrder.clear();
    // Hand back what the last request's statistics took.
    std::vector<unsigned char>().swap(m_memoryStats);
    std::vector<unsigned char>().swap(m_processorStats);
    m_memoryStatCount = 0;
    m_processorStatCount = 0;
    m_status = 1;
    return 1;
}

int InventoryAgent::extractId(const std::string& extra)
{
    int id = 0;
    size_t open = extra.find('[');
    if (open != std::string::npos && extra.find(']', open + 1) != std::string::npos) {
        parseInt(bracketed(extra), id);
    }
    return id;
}

int InventoryAgent::preProcessGet(std::string& name, std::string& extra)
{
    printf("name = %s    Extra = %s\n", name.c_str(), extra.c_str());
    m_log.logTrace("InventoryAgent: preProcessGet()\n");
    m_status = 1;
    const NameInfo* info = findName(name);
    if (info == nullptr) {
        puts("Not a valid Inventory Type");
        return m_status;
    }
    m_requested.push_back({name, extra, 0, ""});
    if (info->source != kNone) {
        m_sources[info->source] = true;
    }
    if (name == "memoryStats") {
        m_memoryStatId = extractId(extra);
    } else if (name == "processorStats") {
        m_processorStatId = extractId(extra);
    } else if (name == "inventoryGPU") {
        // Slot and mode are kept per agent, not process-wide: two connections
        // asking at once must not see each other's mode.
        DeviceInventory::parseGpuArgument(extra, m_requested.back().gpuSlot, m_requested.back().gpuMode);
    } else if (name == "AdapterMacAddressList") {
        m_macDb.CheckforAdapterUpdate();
        m_macDb.extractSlotInfo(extra);
    }
    fflush(stdout);
    return m_status;
}

int InventoryAgent::processGet()
{
    // The daemon, sensor and disk sources fetch here, per request, without
    // the lock: their data belongs to this agent.
    const struct {
        Source source;
        int (DeviceInventory::*fetch)();
    } kFetches[] = {{kSrcPsu, &DeviceInventory::fetchPowerSupplies},
                    {kSrcGpu, &DeviceInventory::fetchGpus},
                    {kSrcHdd, &DeviceInventory::fetchDriveSlots},
                    {kSrcLocalDisks, &DeviceInventory::fetchLocalDisks}};
    for (const auto& f : kFetches) {
        if (m_sources[f.source] && (m_devices.*f.fetch)() != 1) {
            m_status = 2;
        }
    }
    return m_status;
}

int InventoryAgent::postProcessGet(ConnectionHandler& connection)
{
    GUIDataSocket& socket = connection.getSocket();
    if (m_status == 1) {
        m_status = processSmBiosDataGetAndPost(socket);
    }
    if (m_status == 1) {
        puts("InventoryAgent::postProcessGet");
        fflush(stdout);
        for (const Requested& request : m_requested) {
            const NameInfo* info = findName(request.name);
            if (info != nullptr && !info->smbios) {
                writeOtherReply(request, socket);
            }
        }
    }
    return m_status;
}

int InventoryAgent::processSmBiosDataGetAndPost(GUIDataSocket& socket)
{
    m_log.logTrace("InventoryAgent: %s\n", "processSmBiosDataGetAndPost");
    ScopedLock lock(m_mutex);  // released on every exit, exceptions included
    refreshSmBiosVersion();
    if (m_sources[kSrcCpu]) {
        getCpuInfo();
    }
    if (m_sources[kSrcProcessorStats]) {
        getProcessorStats();
    }
    if (m_sources[kSrcMemoryStats]) {
        getMemoryStats();
    }
    if (m_sources[kSrcBoardStats]) {
        getMotherboardStats();
    }
    if (m_sources[kSrcMemory]) {
        getMemory();
    }
    if (m_sources[kSrcMemoryDetail]) {
        getMemoryDetail();
    }
    if (m_sources[kSrcMemorySummary]) {
        getMemorySummary();
    }
    if (m_sources[kSrcSystemInfo]) {
        getSystemInfo();
    }
    if (m_sources[kSrcBootDevice]) {
        getBootDevice();
    }
    if (m_sources[kSrcPcie]) {
        getPCIinfo();
    }
    if (m_sources[kSrcAdapterMac]) {
        m_macDb.getAdapterMacInfo();
    }
    if (m_sources[kSrcLom]) {
        getLomMacList();
    }
    if (m_status != 1) {
        return m_status;
    }
    for (const Requested& request : m_requested) {
        const NameInfo* info = findName(request.name);
        if (info != nullptr && info->smbios) {
            writeSmBiosReply(request, socket);
        }
    }
    m_log.logTrace("InventoryAgent: %s  Exiting\n", "processSmBiosDataGetAndPost");
    return m_status;
}

void InventoryAgent::refreshSmBiosVersion()
{
    m_log.logTrace("InventoryAgent::%s\n", "refreshSmBiosVersion");
    unsigned char version = 0;
    int length = 0;
    int rc = GetSmBiosDataVersion(&length, 1, nullptr, &version);
    bool ok = rc == 0 && length == 1;
    if (!ok) {
        m_log.logError("GetSmBiosDataVersion call failed\n");
    }
    if (ok && version == getCachedVersion()) {
        return;
    }
    m_log.logInfo("cachedSmVersion 0x%x, New smVersion: 0x%x\n", getCachedVersion(), version);
    freeCacheLocked();
    setCachedVersion(ok ? version : 0);
}

void InventoryAgent::writeSmBiosReply(const Requested& request, GUIDataSocket& socket)
{
    const std::string& name = request.name;
    if (name == "inventoryCPU") {
        postCpuInfo(socket);
    } else if (name == "inventoryCPUCore") {
        postCpuCoreInfo(socket);
    } else if (name == "memoryStats") {
        postMemoryStats(socket);
    } else if (name == "processorStats") {
        postProcessorStats(socket);
    } else if (name == "motherboardStats") {
        postMotherboardStats(socket);
    } else if (name == "inventoryMemory") {
        postMemory(socket);
    } else if (name == "inventoryMemoryDetail") {
        postMemoryDetail(socket);
    } else if (name == "inventoryMemorySummary") {
        postMemorySummary(socket);
    } else if (name == "sysProductName") {
        socket.writeSimpleElement("sysProductName", getProductName());
    } else if (name == "sysProductID") {
        socket.writeSimpleElement("sysProductID", getProductId());
    } else if (name == "sysSerialNum") {
        socket.writeSimpleElement("sysSerialNum", getSerialNumber());
    } else if (name == "UUID") {
        postUUID(socket);
    } else if (name == "inventoryPCI") {
        postPCIinfo(socket);
    } else if (name == "lomMacAddressList") {
        postLomMacAddrList(socket);
    } else if (name == "AdapterMacAddressList") {
        // The reply clears slot and mode; each request sets its own again.
        m_macDb.extractSlotInfo(request.extra);
        m_macDb.postAdapterMacAddressList(socket);
    }
}

void InventoryAgent::writeOtherReply(const Requested& request, GUIDataSocket& socket)
{
    const std::string& name = request.name;
    if (name == "sysPlatform") {
        socket.writeSimpleElement("sysPlatform", static_cast<int>(getPlatform()));
    } else if (name == "smbiosBootOrderList") {
        postBootOrderDeviceList(socket, false);
    } else if (name == "tarqSmbiosBootOrderList") {
        postBootOrderDeviceList(socket, true);
    } else if (name == "inventoryStatus") {
        postInventoryStatus(socket);
    } else if (name == "platformSkuType") {
        m_devices.writePlatformSkuType(socket);
    } else if (name == "inventoryPSU") {
        m_devices.writePowerSupplies(socket);
    } else if (name == "inventoryHDD") {
        m_devices.writeDriveSlots(socket);
    } else if (name == "tarqLocalDisks") {
        m_devices.writeLocalDisks(socket);
    } else if (name == "inventoryGPU") {
        m_devices.writeGpus(socket, request.gpuSlot, request.gpuMode.c_str());
    } else if (name == "inventoryTPM") {
        m_devices.writeTpm(socket);
    } else if (name == "veskSecValidation") {
        m_devices.postVeskSecValidation(socket);
    }
}

// --- collection state ---

std::string InventoryAgent::collectionState()
{
    FILE* f = fopen(PlatformRoot::path(kStatusFile).c_str(), "r");
    if (f == nullptr) {
        return "";
    }
    char word[kMaxStateWord + 2] = "";
    // One character more than a state may have, to notice longer words.
    int got = fscanf(f, "%33s", word);
    fclose(f);
    if (got != 1 || strlen(word) > kMaxStateWord) {
        return "";
    }
    return word;
}

bool InventoryAgent::collectionRunning()
{
    // An overlong word is no state: it does not block a new collection,
    // which rewrites the file.
    std::string state = collectionState();
    return !(state.empty() || state.rfind("COMPLETED", 0) == 0 || state.rfind("NONE", 0) == 0 ||
             state.rfind("ERROR", 0) == 0);
}

void InventoryAgent::postInventoryStatus(GUIDataSocket& socket)
{
    socket.writeString("<Inventory>");
    FILE* f = fopen(PlatformRoot::path(kStatusFile).c_str(), "r");
    if (f == nullptr) {
        socket.writeSimpleElement("inventory-status", "NONE");
        socket.writeSimpleElement("inventory-progress", 0);
    } else {
        char word[kMaxStateWord + 2] = "";
        int progress = 0;
        int got = fscanf(f, "%33s %d", word, &progress);
        fclose(f);
        // A file without a word reads as no collection; a word longer than
        // any state (a damaged file) is reported as an error.
        if (got < 1) {
            socket.writeSimpleElement("inventory-status", "NONE");
            progress = 0;
        } else if (strlen(word) > kMaxStateWord) {
            socket.writeSimpleElement("inventory-status", "ERROR");
            progress = 0;
        } else {
            socket.writeSimpleElement("inventory-status", word);
        }
        socket.writeSimpleElement("inventory-progress", progress);
    }
    socket.writeString("</Inventory>");
}

// --- writes ---

bool InventoryAgent::validate(const char* tool, const std::vector<std::string>& arguments)
{
    system_exec_cmd_t command;
    std::string path = PlatformRoot::path(tool);
    const char* a[4] = {nullptr, nullptr, nullptr, nullptr};
    for (size_t i = 0; i < arguments.size() && i < 4; i++) {
        a[i] = arguments[i].c_str();
    }
    if (system_exec_set_command_arg(&command, path.c_str(), a[0], a[1], a[2], a[3], nullptr) != 0) {
        return false;
    }
    char output[256];
    return system_exec_command(&command, output, sizeof output) == 0;
}

int InventoryAgent::preProcessSet(std::string& name, TokenMap& arguments)
{
    if ((m_dataHandler->getConnectionHandler()->getPrivileges() & 0x02) == 0) {
        throw SecurityException(0, "Insufficient privileges");
    }
    std::vector<std::string> args;
    auto it = arguments.find(name);
    if (it != arguments.end()) {
        for (const RequestToken& t : it->second) {
            args.push_back(t.toString());
        }
    }
    if (name == "inventoryRefresh") {
        if (args.size() != 1) {
            m_log.logError("%s: Invalid set property\n", "preProcessSet");
            m_status = 2;
            return m_status;
        }
        if (args[0] == "1") {
            m_refresh = true;
            m_status = 1;
        }
        return m_status;
    }
    if (name != "inventoryUpload") {
        return m_status;
    }
    if (args.size() < 3) {
        throw ProcessingException(
            "invalid parameters for "
            "inventoryUpload(remoteProtocol,remoteIP,remotepath,remoteUsername,remotePassword]) got %d",
            static_cast<int>(args.size()));
    }
    // Each value reaches its validator only when the general rule accepts it.
    if (!system_check_user_input(args[0].c_str(), "general_rule") ||
        !validate("/usr/cli/classes/validateprotocol", {args[0]})) {
        m_status = 2;
        throw ProcessingException("Invalid Protocol!");
    }
    if (!system_check_user_input(args[1].c_str(), "general_rule") ||
        !validate("/usr/cli/classes/validateaddress", {"1", "2", args[1]})) {
        m_status = 2;
        throw ProcessingException("invalid IP address provided %s", echo(args[1]).c_str());
    }
    if (!system_check_user_input(args[2].c_str(), "general_rule") ||
        !validate("/usr/cli/classes/validatepath", {"1", "2", "3", args[2]})) {
        m_status = 2;
        throw ProcessingException("invalid path provided %s", echo(args[2]).c_str());
    }
    m_protocol = args[0];
    m_ipAddress = args[1];
    m_path = args[2];
    if (args.size() == 5) {
        m_user = args[3];
        m_password = args[4];
    } else {
        m_user.clear();
        m_password.clear();
    }
    m_upload = true;
    m_status = 1;
    return m_status;
}

int InventoryAgent::postProcessSet(ConnectionHandler& connection, TokenMap& arguments)
{
    if (m_refresh) {
        m_refresh = false;
        startCollection();
    }
    if (m_upload) {
        m_upload = false;
        startUpload();
    }
    return 1;
}

void InventoryAgent::startCollection()
{
    if (collectionRunning()) {
        m_log.logError("%s: inventory collection script execution is in progess\n", "postProcessSet");
        return;
    }
    std::string command = PlatformRoot::path(kCollectScript) + " &";
    system_secure(command.c_str());
}

void InventoryAgent::startUpload()
{
    if (collectionRunning()) {
        m_log.logError("%s: inventory collection script execution is in progess\n", "postProcessSet");
        return;
    }
    std::string command =
        PlatformRoot::path(kUploadScript) + " -ip " + m_ipAddress + " -path " + m_path + " -protocol " + m_protocol;
    if (!m_user.empty() && !m_password.empty()) {
        escapeShellMetaChar(m_user);
        escapeShellMetaChar(m_password);
        command += " -username " + m_user + " -password " + m_password;
    }
    command += " &";
    if (!system_check_user_input(m_ipAddress.c_str(), "general_rule") ||
        !system_check_user_input(m_path.c_str(), "general_rule") ||
        !system_check_user_input(m_user.c_str(), "general_rule") ||
        !system_check_user_input(m_protocol.c_str(), "general_rule") ||
        !system_check_user_input(m_password.c_str(), "password_rule") || command.size() >= kMaxCommandLine) {
        throw ProcessingException("Invalid Parameters");
    }
    system_secure(command.c_str());
}
