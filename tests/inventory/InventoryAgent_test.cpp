// The inventory agent: record decoding against hand-packed bytes, the
// cache and its version, the collection state, and the refresh and upload
// writes with hostile arguments.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "AgentHarness.h"
#include "DataHandler.h"
#include "InventoryAgent.h"
#include "ProcessingException.h"
#include "RawWire.h"
#include "ReplyText.h"
#include "RequestToken.h"
#include "smbios_inventory.h"

namespace {

// Builds packed records by hand.
struct Bytes {
    std::vector<unsigned char> b;
    size_t base = 0;
    Bytes& record(size_t size)
    {
        base = b.size();
        b.resize(base + size, 0);
        return *this;
    }
    Bytes& str(size_t offset, const std::string& text)
    {
        memcpy(&b[base + offset], text.data(), text.size());
        return *this;
    }
    Bytes& le32(size_t offset, uint32_t v)
    {
        for (int i = 0; i < 4; i++) {
            b[base + offset + i] = static_cast<unsigned char>(v >> (8 * i));
        }
        return *this;
    }
    Bytes& byte(size_t offset, unsigned char v)
    {
        b[base + offset] = v;
        return *this;
    }
};

class Inventory : public testing::Test {
protected:
    void SetUp() override
    {
        InventoryAgent::resetCache();
        DataAgent::resetPlatformCache();
        agent = new InventoryAgent(h.dataHandler());
        for (const char* name : InventoryAgent::propertyNames()) {
            h.dataHandler().addAgent(name, agent);
        }
    }
    void TearDown() override { InventoryAgent::resetCache(); }

    // Puts `bytes` into the cache and returns what `post` writes.
    std::string post(InventoryAgent::CacheSlot slot, const Bytes& bytes, int records,
                     void (InventoryAgent::*write)(GUIDataSocket&))
    {
        pthread_mutex_lock(&InventoryAgent::m_mutex);
        InventoryAgent::setCached(slot, bytes.b.data(), bytes.b.size(), records);
        (agent->*write)(h.socket());
        pthread_mutex_unlock(&InventoryAgent::m_mutex);
        return h.reply();
    }

    AgentHarness h;
    InventoryAgent* agent;
};

TEST_F(Inventory, DecodesProcessorRecords)
{
    Bytes b;
    b.record(SMBIOS_CPU_RECORD_SIZE).str(0, "CPU1").str(64, "Maker").str(316, "Populated, Enabled");
    b.le32(172, 8).le32(304, 2400).le32(308, 4).le32(312, 3).le32(356, 0xFFFFFFFF);
    b.record(SMBIOS_CPU_RECORD_SIZE).str(0, "CPU2").str(64, "Ghost").le32(308, 99).str(316, "unPOPULATED");
    // A socket name filling its 64 bytes: no terminator, the next field is not read into it.
    b.record(SMBIOS_CPU_RECORD_SIZE).str(0, std::string(64, 'S')).str(64, "M").le32(308, 2).str(316, "Enabled");
    std::string reply = post(InventoryAgent::kCpu, b, 3, &InventoryAgent::postCpuInfo);
    EXPECT_NE(std::string::npos,
              reply.find("<Processor><id>1</id>\n<SocketDesignation>CPU1</SocketDesignation>\n"
                         "<ProcessorManufacturer>Maker</ProcessorManufacturer>\n<ProcessorFamily></ProcessorFamily>\n"
                         "<ThreadCount>8</ThreadCount>\n<SerialNumber></SerialNumber>\n"
                         "<ProcessorVersion></ProcessorVersion>\n<CurrentSpeed>2400</CurrentSpeed>\n"
                         "<CoreCount>4</CoreCount>\n<CoreEnabled>3</CoreEnabled>\n"
                         "<Status>Populated, Enabled</Status>\n<MaxSpeed>4294967295</MaxSpeed>\n"
                         "<Signature></Signature>\n</Processor>"))
        << reply;
    // Unpopulated: everything but id, socket and status is N/A.
    EXPECT_NE(std::string::npos, reply.find("<Processor><id>2</id>\n<SocketDesignation>CPU2</SocketDesignation>\n"
                                            "<ProcessorManufacturer>N/A</ProcessorManufacturer>"));
    size_t ghost = reply.find("<id>2</id>");
    EXPECT_EQ(10u, occurrences(reply.substr(ghost, reply.find("</Processor>", ghost) - ghost), ">N/A<"));
    EXPECT_NE(std::string::npos, reply.find("<id>" + std::string(61, 'S') + "</id>\n<SocketDesignation>" +
                                            std::string(64, 'S') + "</SocketDesignation>"));
    EXPECT_EQ("<numOfCores>6</numOfCores>\n<numOfCoresEnabled>3</numOfCoresEnabled>\n<numOfThreads>8</numOfThreads>\n",
              post(InventoryAgent::kCpu, b, 3, &InventoryAgent::postCpuCoreInfo));
}

TEST_F(Inventory, DecodesAdapterNicSummaryAndBootRecords)
{
    Bytes pci;
    pci.record(SMBIOS_PCIE_RECORD_SIZE).byte(0, 0x80).byte(1, 0x86).byte(2, 0x15).byte(3, 0x89).byte(7, 0x01);
    pci.str(16, "NIC").str(80, "Slot 7").str(144, "N/A").le32(208, 1);
    std::string reply = post(InventoryAgent::kPcie, pci, 1, &InventoryAgent::postPCIinfo);
    EXPECT_EQ(
        "<PCIeAdapterList><PCIeAdapter><Slot>UNKNOWN</Slot>\n<VendorID>0x8086</VendorID>\n"
        "<DeviceID>0x1589</DeviceID>\n<SubVendorID>0x0000</SubVendorID>\n<SubDeviceID>0x0001</SubDeviceID>\n"
        "<OptionROMLoaded>1</OptionROMLoaded>\n<ProductName>NIC</ProductName>\n<fwVersion>N/A</fwVersion>\n"
        "</PCIeAdapter></PCIeAdapterList>",
        reply);

    Bytes lom;  // a name filling its 24 bytes stops before the MAC field
    lom.record(SMBIOS_LOM_RECORD_SIZE).str(0, std::string(24, 'n')).str(24, std::string(18, 'm'));
    EXPECT_EQ("<LOMMacAddressList><LOMMacAddress><InterfaceName>" + std::string(24, 'n') +
                  "</InterfaceName>\n<MacAddress>" + std::string(18, 'm') +
                  "</MacAddress>\n</LOMMacAddress></LOMMacAddressList>",
              post(InventoryAgent::kLom, lom, 1, &InventoryAgent::postLomMacAddrList));

    Bytes sum;
    sum.record(SMBIOS_MEMORY_SUMMARY_SIZE).str(0, "2933").byte(192, 255).byte(194, 2).byte(195, 1);
    reply = post(InventoryAgent::kSummary, sum, 1, &InventoryAgent::postMemorySummary);
    EXPECT_NE(std::string::npos, reply.find("<NumOfIgnoredDimms>NA</NumOfIgnoredDimms>\n"
                                            "<NumOfFailedDimms>258</NumOfFailedDimms>"));
    InventoryAgent::resetCache();  // no summary: the empty frame
    agent->postMemorySummary(h.socket());
    EXPECT_EQ("<DIMMSummary></DIMMSummary>", h.reply());
}

TEST_F(Inventory, BootOrderThroughTheLibrary)
{
    // Type 4 is no known device; a device count over 16 is cut to 16.
    h.root().writeFile("/var/smbios/host.json", R"({"version": 2, "bootOrder": [
        {"type": 4, "devices": ["X"]},
        {"type": 2, "devices": ["a","b","c","d","e","f","g","h","i","j","k","l","m","n","o","p"], "deviceCount": 200}]})");
    std::string reply = h.request("get=smbiosBootOrderList,tarqSmbiosBootOrderList,sysPlatform");
    EXPECT_NE(std::string::npos,
              reply.find("<smbiosBootOrderList><smbiosBootOrder><name>unknown device</name>\n"
                         "<bootDevice>X</bootDevice>\n</smbiosBootOrder><smbiosBootOrder><name>HDD</name>\n"))
        << reply;
    EXPECT_NE(std::string::npos,
              reply.find("<smbiosBootOrder><name>unknown device</name>\n<type>unknown-order</type>\n<index>1</index>\n"
                         "<bootDevice><name>X</name>\n<serno>1</serno>\n</bootDevice></smbiosBootOrder>"));
    EXPECT_NE(std::string::npos, reply.find("<serno>16</serno>"));
    EXPECT_EQ(std::string::npos, reply.find("<serno>17</serno>"));
    // Every name answered once, in order.
    EXPECT_EQ(2u, occurrences(reply, "<smbiosBootOrderList>"));
    EXPECT_EQ(1u, occurrences(reply, "<sysPlatform>1</sysPlatform>"));

    // A count of 16 or -1 is an error.
    for (const char* bad : {"16", "-1"}) {
        InventoryAgent::resetCache();
        h.root().writeFile("/var/smbios/host.json", std::string(R"({"version": 3, "bootOrderCount": )") + bad + "}");
        EXPECT_NE(
            std::string::npos,
            h.request("get=smbiosBootOrderList").find("<errorMsg>Failed processing getBootDevice request</errorMsg>"))
            << bad;
    }
}

TEST_F(Inventory, EmptyHostGivesEmptyLists)
{
    // No records at all: every list is its frame only, and nothing is cached
    // (records added later show without a version change).
    h.root().writeFile("/var/smbios/host.json", R"({"version": 4})");
    EXPECT_EQ(
        "<root><DIMMList></DIMMList><ProcessorList></ProcessorList><PCIeAdapterList></PCIeAdapterList>"
        "<LOMMacAddressList></LOMMacAddressList><DIMMSummary></DIMMSummary><DIMMList></DIMMList>"
        "<status>ok</status>\n</root>\n",
        h.request("get=inventoryMemory,inventoryCPU,inventoryPCI,lomMacAddressList,inventoryMemorySummary,"
                  "inventoryMemoryDetail"));
    h.root().writeFile("/var/smbios/host.json", R"({"version": 4, "dimms": [{"name": "DIMM_B2"}]})");
    EXPECT_NE(std::string::npos, h.request("get=inventoryMemoryDetail").find("<id>4</id>\n<Name>DIMM_B2</Name>"));
}

TEST_F(Inventory, CacheFollowsTheDataVersion)
{
    std::string first = h.request("get=inventoryMemory");
    EXPECT_EQ(12u, occurrences(first, "<DIMM>"));
    EXPECT_EQ(1, InventoryAgent::getCachedVersion());
    // The same version keeps the cache even though the host changed.
    std::string host = h.root().readFile("/var/smbios/host.json");
    std::string changed = host;
    changed.replace(changed.find("DIMM_A1"), 7, "DIMM_Z9");
    h.root().writeFile("/var/smbios/host.json", changed);
    EXPECT_EQ(first, h.request("get=inventoryMemory"));
    // A new version drops it.
    changed.replace(changed.find("\"version\": 1"), 12, "\"version\": 9");
    h.root().writeFile("/var/smbios/host.json", changed);
    EXPECT_NE(std::string::npos, h.request("get=inventoryMemory").find("DIMM_Z9"));
    EXPECT_EQ(9, InventoryAgent::getCachedVersion());
    // A failing version call drops it too.
    h.root().writeFile("/var/smbios/faults/GetSmBiosDataVersion", "fail");
    h.root().writeFile("/var/smbios/host.json", host);
    EXPECT_NE(std::string::npos, h.request("get=inventoryMemory").find("DIMM_A1"));
    EXPECT_EQ(0, InventoryAgent::getCachedVersion());
}

TEST_F(Inventory, FailingFetchesReplyWithTheirMessageAndCacheNothing)
{
    const struct {
        const char* fault;
        const char* name;
        const char* message;
    } cases[] = {
        {"GetCPUItems", "inventoryCPU", "Failed processing CPU inventory request"},
        {"GetCPUInfo", "inventoryCPUCore", "Failed processing CPU inventory request"},
        {"GetMemoryItems", "inventoryMemoryDetail", "Failed processing MemoryInfo request"},
        {"GetMemoryDetail", "inventoryMemoryDetail", "Failed processing MemoryInfo request"},
        {"GetMemorySummary", "inventoryMemorySummary", "Failed processing MemorySummary request"},
        {"GetPCIeAdapters", "inventoryPCI", "Failed to process PCIeAdaptersInfo request"},
        {"GetMacAddressItems", "lomMacAddressList", "Failed to process GetMacAddressList request"},
        {"GetBootOrderDevices", "tarqSmbiosBootOrderList", "Failed processing getBootDevice request"},
    };
    for (const auto& c : cases) {
        InventoryAgent::resetCache();
        std::string fault = std::string("/var/smbios/faults/") + c.fault;
        h.root().writeFile(fault, "");
        EXPECT_EQ(std::string("<root><status>error</status><errorMsg>") + c.message + "</errorMsg></root>",
                  h.request(std::string("get=inventoryPSU,") + c.name))
            << c.fault;
        unlink(h.root().path(fault).c_str());
        // Nothing half-cached: the next request reads the whole list.
        std::string reply = h.request(std::string("get=") + c.name);
        EXPECT_NE(std::string::npos, reply.find("<status>ok</status>")) << c.fault;
    }
    // Statistics failures only leave their lists empty; a missing UUID comes from the property service.
    h.root().writeFile("/var/smbios/faults/GetMemoryStats", "");
    h.root().writeFile("/var/smbios/faults/GetSystemInfo", "");
    h.root().writeFile("/var/aim/props/pm_uuid", "str\n00112233445566778899AABBCCDDEEFF\n");
    std::string reply = h.request("get=memoryStats[2],UUID");
    EXPECT_NE(std::string::npos,
              reply.find("<memoryStats></memoryStats><UUID>00112233-4455-6677-8899-AABBCCDDEEFF</UUID>"))
        << reply;
    // Short output: only whole records count.
    h.root().writeFile("/var/smbios/faults/GetMemoryInfo", "short 700");
    EXPECT_EQ(2u, occurrences(h.request("get=inventoryMemory"), "<DIMM>"));
}

TEST_F(Inventory, RepliesSmbiosElementsFirst)
{
    h.root().writeFile("/var/inventory-all-status", "COMPLETED 100\n");
    std::string reply = h.request("get=inventoryStatus,inventoryCPUCore,sysPlatform,memoryStats[3],inventoryCPUCore");
    size_t cores = reply.find("<numOfCores>");
    size_t stats = reply.find("<memoryStats><memory><id>3</id>");
    size_t status = reply.find(
        "<Inventory><inventory-status>COMPLETED</inventory-status>\n"
        "<inventory-progress>100</inventory-progress>\n</Inventory>");
    ASSERT_NE(std::string::npos, cores) << reply;
    ASSERT_NE(std::string::npos, stats) << reply;
    ASSERT_NE(std::string::npos, status) << reply;
    EXPECT_LT(cores, stats);
    EXPECT_LT(stats, status);
    EXPECT_EQ(2u, occurrences(reply, "<numOfCores>"));
    EXPECT_EQ(1u, occurrences(reply, "<memory>"));
}

TEST_F(Inventory, CollectionState)
{
    const struct {
        const char* content;  // null: no file
        const char* word;
        int progress;
    } cases[] = {
        {nullptr, "NONE", 0}, {"RUNNING 42\n", "RUNNING", 42}, {"ERROR", "ERROR", 0},
        {"", "NONE", 0},      {"COMPLETED x", "COMPLETED", 0},
    };
    for (const auto& c : cases) {
        unlink(h.root().path("/var/inventory-all-status").c_str());
        if (c.content != nullptr) {
            h.root().writeFile("/var/inventory-all-status", c.content);
        }
        EXPECT_NE(std::string::npos, h.request("get=inventoryStatus")
                                         .find(std::string("<Inventory><inventory-status>") + c.word +
                                               "</inventory-status>\n<inventory-progress>" +
                                               std::to_string(c.progress) + "</inventory-progress>\n</Inventory>"))
            << (c.content ? c.content : "(none)");
    }
    // A 300-character word is no state.
    h.root().writeFile("/var/inventory-all-status", std::string(300, 'W') + " 5\n");
    std::string reply = h.request("get=inventoryStatus");
    EXPECT_NE(std::string::npos, reply.find("<inventory-status>ERROR</inventory-status>\n<inventory-progress>0<"));
    EXPECT_EQ(std::string::npos, reply.find("WWWW"));
}

// Commands the safe-execution stand-in ran that name `what`.
size_t ran(AgentHarness& h, const std::string& what)
{
    return occurrences(h.root().readFile("/var/safeexec/commands"), what);
}

TEST_F(Inventory, RefreshStartsTheCollectionOnlyWhenIdle)
{
    const struct {
        const char* state;  // null: no status file
        const char* request;
        bool starts;
        const char* reply;
    } cases[] = {
        {nullptr, "set=inventoryRefresh:1", true, "<root><status>ok</status>\n</root>\n"},
        {"COMPLETED 100", "set=inventoryRefresh:1", true, "<root><status>ok</status>\n</root>\n"},
        {"NONE 0", "set=inventoryRefresh:1", true, "<root><status>ok</status>\n</root>\n"},
        {"ERRORED 3", "set=inventoryRefresh:1", true, "<root><status>ok</status>\n</root>\n"},
        {"RUNNING 10", "set=inventoryRefresh:1", false, "<root><status>ok</status>\n</root>\n"},
        {"COMPLETED 100", "set=inventoryRefresh:0", false, "<root><status>ok</status>\n</root>\n"},
        {"COMPLETED 100", "set=inventoryRefresh(1,1)", false, nullptr},
    };
    for (const auto& c : cases) {
        unlink(h.root().path("/var/inventory-all-status").c_str());
        unlink(h.root().path("/var/safeexec/commands").c_str());
        // The script itself must not run here: the fault makes system_secure a no-op.
        h.root().writeFile("/var/safeexec/faults/system_secure", "0");
        if (c.state != nullptr) {
            h.root().writeFile("/var/inventory-all-status", c.state);
        }
        std::string reply = h.request(c.request);
        if (c.reply != nullptr) {
            EXPECT_EQ(c.reply, reply) << c.request;
        } else {
            EXPECT_NE(std::string::npos, reply.find("<status>error</status>")) << reply;
        }
        EXPECT_EQ(c.starts ? 1u : 0u, ran(h, "inventory-all.sh &")) << c.request << " " << (c.state ? c.state : "");
    }
    EXPECT_EQ("<root><status>error</status><errorMsg>Insufficient privileges</errorMsg></root>",
              h.request("set=inventoryRefresh:1", 0x7d));
}

class Upload : public Inventory {
protected:
    // Runs the upload with `args` straight through the agent (no request
    // syntax in the way); returns the exception text, or "" on success.
    std::string upload(const std::vector<std::string>& args)
    {
        TokenMap map;
        for (const std::string& a : args) {
            map["inventoryUpload"].push_back(RequestToken(RequestToken::TEXT, a));
        }
        std::string name = "inventoryUpload";
        try {
            agent->initialize();
            agent->preProcessSet(name, map);
            agent->processSet();
            agent->postProcessSet(h.connection(), map);
        } catch (const ProcessingException& e) {
            return e.getMessage();
        }
        return "";
    }
};

TEST_F(Upload, RecordsWhatItSends)
{
    // The upload runs in the background; wait for its record.
    auto logged = [&](size_t uploads) {
        waitFor([&] { return occurrences(h.root().readFile("/var/inventory-upload.log"), "upload") == uploads; }, 30);
        return h.root().readFile("/var/inventory-upload.log");
    };
    EXPECT_EQ("", upload({"tftp", "10.0.0.5", "/inv", "user", "pa$s;1"}));
    EXPECT_EQ(
        "upload\n  -ip\n  10.0.0.5\n  -path\n  /inv\n  -protocol\n  tftp\n  -username\n  user\n  -password\n"
        "  pa$s;1\n",
        logged(1));
    // A user name without a password (or the reverse) uploads without credentials.
    EXPECT_EQ("", upload({"sftp", "fe80::1", "/a/b.txt", "user"}));
    EXPECT_EQ("", upload({"http", "backup.example.com", "/x", "", "secret"}));
    std::string log = logged(3);
    EXPECT_EQ(3u, occurrences(log, "upload\n"));
    EXPECT_EQ(1u, occurrences(log, "-username"));
    EXPECT_EQ(
        "invalid parameters for inventoryUpload(remoteProtocol,remoteIP,remotepath,remoteUsername,"
        "remotePassword]) got 2",
        upload({"tftp", "10.0.0.5"}));
}

TEST_F(Upload, RefusesHostileArguments)
{
    const std::string canary = h.root().path("/tmp/canary");
    const std::string touch = "touch " + canary;
    const struct {
        std::vector<std::string> args;
        std::string message;
    } cases[] = {
        {{"tftp;" + touch, "10.0.0.5", "/inv"}, "Invalid Protocol!"},
        {{"gopher", "10.0.0.5", "/inv"}, "Invalid Protocol!"},
        {{"-h", "10.0.0.5", "/inv"}, "Invalid Protocol!"},
        {{"tftp", "$(" + touch + ")", "/inv"}, "invalid IP address provided $(" + touch + ")"},
        {{"tftp", "-10.0.0.5", "/inv"}, "invalid IP address provided -10.0.0.5"},
        {{"tftp", "999.1.1.1", "/inv"}, "invalid IP address provided 999.1.1.1"},
        {{"tftp", "10.0.0.5", "/inv`" + touch + "`"}, "invalid path provided /inv`" + touch + "`"},
        {{"tftp", "10.0.0.5", "/inv\n" + touch}, "invalid path provided /inv\n" + touch},
        {{"tftp", "10.0.0.5", "/a/../etc"}, "invalid path provided /a/../etc"},
        {{"tftp", "10.0.0.5", "relative"}, "invalid path provided relative"},
        {{"tftp", "10.0.0.5", "/" + std::string(10240, 'p')}, "invalid path provided /" + std::string(254, 'p')},
        {{"tftp", "10.0.0.5", "/inv", "u;" + touch, "p"}, "Invalid Parameters"},
        {{"tftp", "10.0.0.5", "/inv", "u", "$(" + touch + ")"}, "Invalid Parameters"},
        {{"tftp", "10.0.0.5", "/inv", "u", "p\n" + touch}, "Invalid Parameters"},
        {{"tftp", "10.0.0.5", "/inv", "u", "`" + touch + "`"}, "Invalid Parameters"},
        {{"tftp", "10.0.0.5", "/inv", std::string(10240, 'u'), "p"}, "Invalid Parameters"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.message, upload(c.args)) << c.args[0] << " " << c.args[1];
    }
    usleep(200000);
    EXPECT_FALSE(h.root().exists("/tmp/canary"));
    EXPECT_EQ("", h.root().readFile("/var/inventory-upload.log"));
    // A run in progress starts no upload.
    h.root().writeFile("/var/inventory-all-status", "RUNNING 5");
    EXPECT_EQ("", upload({"tftp", "10.0.0.5", "/inv"}));
    EXPECT_EQ(0u, ran(h, "inventory-upload.sh"));
}

}  // namespace
