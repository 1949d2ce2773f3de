// The inventory end to end: the simulated hosts' replies (golden), a
// platform's DIMM ids, the card firmware's cache, the
// collection and hostile upload arguments over the wire (what the upload
// sends, the order of the elements and every argument check are the unit
// tests').
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "GdsProcess.h"
#include "RawWire.h"
#include "ReplyText.h"
#include "TestRoot.h"
#include "XmlCheck.h"

namespace {

const char kPage[] =
    "get=inventoryCPU,inventoryCPUCore,inventoryMemory,inventoryMemoryDetail,inventoryMemorySummary,"
    "sysProductName,sysProductID,sysSerialNum,UUID,smbiosBootOrderList,tarqSmbiosBootOrderList,inventoryPCI,"
    "lomMacAddressList,sysPlatform";

class InventoryE2E : public testing::Test {
protected:
    void start(const std::string& platform = "")
    {
        root.reset(new TestRoot(true, platform));
        gds.reset(new GdsProcess(*root));
        std::string env = root->readFile("/etc/sim-environment");
        std::istringstream lines(env);
        for (std::string line; std::getline(lines, line);) {
            size_t eq = line.find('=');
            if (eq != std::string::npos) {
                gds->setEnv(line.substr(0, eq), line.substr(eq + 1));
            }
        }
        ASSERT_TRUE(gds->start()) << gds->output();
    }

    std::string ask(const std::string& text, uint32_t privileges = 0x7f) { return gds->ask(text, privileges); }

    std::unique_ptr<TestRoot> root;
    std::unique_ptr<GdsProcess> gds;
};

TEST_F(InventoryE2E, SimulatedHostAnswersTheInventoryPage)
{
    start();
    EXPECT_EQ(golden("inventory_dravon.xml"), ask(kPage));
    // Statistics carry the time of collection.
    std::string stats = ask("get=memoryStats[2],processorStats,motherboardStats,inventoryStatus");
    std::string timeless = std::regex_replace(stats, std::regex("<timeCollected>[-0-9T:]+</timeCollected>"), "<t/>");
    EXPECT_EQ(
        "<root><memoryStats><memory><id>2</id>\n<description>DIMM_A2</description>\n<temperature>31 C"
        "</temperature>\n<t/>\n</memory></memoryStats><processorStats><processor><id>1</id>\n"
        "<description>CPU1</description>\n<temperature>45 C</temperature>\n<t/>\n</processor><processor>"
        "<id>2</id>\n<description>CPU2</description>\n<temperature>46 C</temperature>\n<t/>\n</processor>"
        "</processorStats><motherboardStats><t/>\n<consumedPower>250 W</consumedPower>\n<inputCurrent>1.1 A"
        "</inputCurrent>\n<inputVoltage>230 V</inputVoltage>\n<ambientTemp>22 C</ambientTemp>\n<frontTemp>24 C"
        "</frontTemp>\n<iohub1Temp>41 C</iohub1Temp>\n<iohub2Temp>40 C</iohub2Temp>\n<rearTemp>33 C</rearTemp>\n"
        "</motherboardStats><Inventory><inventory-status>NONE</inventory-status>\n<inventory-progress>0"
        "</inventory-progress>\n</Inventory><status>ok</status>\n</root>\n",
        timeless);
}

// A platform overlay selects its DIMM table (each table's ids are the unit
// tests'); Tovrel's second socket is empty: shown but not counted. Without a
// table every DIMM gets the unknown id.
TEST_F(InventoryE2E, PlatformNamesItsDimms)
{
    start("tovrel");
    std::string reply = ask("get=inventoryMemoryDetail,sysPlatform,inventoryCPU,inventoryCPUCore");
    EXPECT_NE(std::string::npos, reply.find("<DIMMList><DIMM><id>1</id>\n<Name>A1</Name>")) << reply;
    EXPECT_EQ(48u, occurrences(reply, "<DIMM>"));
    EXPECT_NE(std::string::npos, reply.find("<sysPlatform>10</sysPlatform>"));
    EXPECT_NE(std::string::npos, reply.find("<Status>Unpopulated</Status>"));
    EXPECT_NE(std::string::npos, reply.find("<numOfCores>28</numOfCores>"));
    gds->stop();
    start("wescal");  // no table: every DIMM gets the unknown id
    EXPECT_EQ(8u, occurrences(ask("get=inventoryMemoryDetail"), "<id>999</id>"));
}

// The card firmware of a PCI adapter is looked up once: a cached page starts
// no process; an activation on the card shows in the next page.
TEST_F(InventoryE2E, CachedCardFirmwareFollowsActivation)
{
    start();
    auto started = [this] { return occurrences(root->readFile("/var/log/tlog"), "ToolRun.cpp"); };
    ask("get=inventoryPCI");
    size_t before = started();
    EXPECT_NE(std::string::npos, ask("get=inventoryPCI").find("<fwVersion>4.5(1b)</fwVersion>"));
    EXPECT_EQ(before, started());
    EXPECT_NE(std::string::npos, ask("set=adapterActivate(2,1)").find("<status>ok</status>"));
    EXPECT_NE(std::string::npos, ask("get=inventoryPCI").find("<fwVersion>4.4(2c)</fwVersion>"));
}

// A refresh runs the collection script once, to completion (a refresh while
// it runs is the unit tests').
TEST_F(InventoryE2E, CollectionRunsToCompletion)
{
    start();
    EXPECT_EQ("<root><status>ok</status>\n</root>\n", ask("set=inventoryRefresh:1"));
    EXPECT_TRUE(waitFor(
        [this] {
            return ask("get=inventoryStatus")
                       .find("<inventory-status>COMPLETED</inventory-status>\n<inventory-progress>100<") !=
                   std::string::npos;
        },
        20));
    EXPECT_EQ(1u, occurrences(root->readFile("/var/safeexec/commands"), "inventory-all.sh &"));
}

TEST_F(InventoryE2E, UploadChecksEveryArgument)
{
    start();
    std::string canary = root->path("/tmp/canary");
    const struct {
        std::string request;
        std::string error;  // "" for success
    } cases[] = {
        {"set=inventoryUpload(tftp,10.0.0.5,/inv,user,pass)", ""},
        // the unit tests hold every argument check; these go through the request syntax
        {"set=inventoryUpload(tftp,$\\(touch " + canary + "\\),/inv)",
         "invalid IP address provided $(touch " + canary + ")"},
        {"set=inventoryUpload(tftp,10.0.0.5,/inv,user,p;touch " + canary + ")", "Invalid Parameters"},
    };
    for (const auto& c : cases) {
        std::string reply = ask(c.request);
        if (c.error.empty()) {
            EXPECT_EQ("<root><status>ok</status>\n</root>\n", reply);
        } else {
            EXPECT_EQ("<root><status>error</status><errorMsg>" + c.error + "</errorMsg></root>", reply)
                << c.request.substr(0, 80);
        }
    }
    waitFor([this] { return !root->readFile("/var/inventory-upload.log").empty(); }, 30);  // the upload ran
    EXPECT_FALSE(root->exists("/tmp/canary"));
}

TEST_F(InventoryE2E, AdapterMacFormsKeepTheirOwnArgument)
{
    start();
    // Each form's reply is golden in the unit tests; here two forms in one
    // request each keep their own argument.
    std::string mac = ask("get=AdapterMacAddressList[L mac]");
    std::string card = ask("get=AdapterMacAddressList[3 card]");
    std::string both = ask("get=AdapterMacAddressList[3 card],AdapterMacAddressList[L mac]");
    EXPECT_EQ(card.substr(0, card.find("<status>")) + mac.substr(6, mac.find("<status>") - 6),
              both.substr(0, both.find("<status>")));
    std::string gpus = ask("get=inventoryGPU[0 gpuInfo],inventoryGPU[0 card]");
    EXPECT_EQ(1u, occurrences(gpus, "<gpuList>"));
    EXPECT_EQ(1u, occurrences(gpus, "<gpuCardList>"));
}

}  // namespace
