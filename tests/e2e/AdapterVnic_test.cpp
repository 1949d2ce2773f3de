// vNIC, iSCSI boot, usNIC and boot-table changes against the real server and
// the simulated cards: each operation's reply and what it changed on the
// card, tool failures, hostile text, and the property file never left behind.
#include <unistd.h>

#include <gtest/gtest.h>

#include "GdsProcess.h"
#include "ReplyText.h"
#include "TestRoot.h"
#include "XmlCheck.h"

namespace {

const std::string kOk = okReply("");
const char kWwpn[] = "50\\:06\\:01\\:60\\:3b\\:e0\\:11\\:33";  // escaped for the request language

class AdapterVnic : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(gds.start()) << gds.output(); }

    std::string ask(const std::string& text) { return gds.ask(text, 0x02); }
    // Runs of the card tool so far (any mention in the command log counts).
    size_t mptoolRuns() { return occurrences(root.readFile("/var/cards/commands.log"), "mptool"); }
    // No property file is left under /tmp of the root.
    bool noPropertyFile() { return system(("! ls '" + root.path("/tmp") + "' | grep -q mpt_vifprops").c_str()) == 0; }

    TestRoot root{true};
    GdsProcess gds{root};
};

// Each operation in turn on card 2: the reply, then a model file of the card
// holds (or no longer holds) a text, and the card's reads show it.
TEST_F(AdapterVnic, OperationsChangeTheCard)
{
    const std::string eth5 = "/var/cards/2/vnics/eth5/";
    struct Case {
        std::string request;
        std::string reply;
        std::string file;  // a model file afterwards
        std::string text;  // a text it holds
        bool present;      // ... or no longer holds (a missing file holds nothing)
        std::string read;  // a get whose reply must hold `shown` ("" none)
        std::string shown;
    };
    const Case cases[] = {
        {"enicIndex:2/eth5,action:create,mtu:9000,vlan:100", kOk, eth5 + "vnic", "mtu: 9000\nvlan: 100\n", true,
         "enic[2 eth5]", "<name>eth5</name><type>eth</type>"},
        {"enicIndex:2/eth5,action:modify,mtu:1500,cos:3", kOk, eth5 + "vnic", "mtu: 1500\nvlan: 100\ncos: 3\n", true,
         "enic[2 eth5]", "<cos>3</cos>"},
        // the partner iSCSI vNIC (eth0) takes the opposite priority
        {"enicIndex:2/eth5,action:iscsiBootConfigure,initiator-priority:primary,target-ip:192.0.2.30", kOk,
         "/var/cards/2/vnics/eth0/iscsi", "initiator-priority: secondary\n", true, "iscsiBoot[2 eth5]",
         "<initiator-priority>primary</initiator-priority><target-ip>192.0.2.30</target-ip>"},
        {"enicIndex:2/eth5,action:iscsiBootConfigure,initiator-priority:secondary,target-port:3261", kOk,
         "/var/cards/2/vnics/eth0/iscsi", "initiator-priority: primary\n", true, "iscsiBoot[2]",
         "<iscsiBootCount>2</iscsiBootCount>"},
        // deleting one makes the other primary
        {"iscsiBootDelete(2,eth0)", kOk, eth5 + "iscsi", "initiator-priority: primary\n", true, "iscsiBoot[2 eth0]",
         "<iscsi-configured>no</iscsi-configured>"},
        {"enicIndex:2/eth5,action:usnicConfigure,usnic-count:8,transmit-queue-count:4", kOk, eth5 + "usnic",
         "transmit-queue-count: 4\nreceive-queue-count: 1\nusnic-count: 8\n", true, "usnicConfig[2 eth5]",
         "<usnic-count>8</usnic-count>"},
        {"fnicIndex:2/fc5,action:create,uplink:1", kOk, "/var/cards/2/vnics/fc5/vnic", "type: fc\n", true, "fnic[2]",
         "<name>fc5</name>"},
        {"fnicIndex:2/fc5,action:modify,boot:enabled", kOk, "/var/cards/2/vnics/fc5/vnic", "boot: enabled\n", true,
         "fnic[2 fc5]", "<uplink>1</uplink><boot>enabled</boot>"},
        {std::string("createFnicChild(2,BootTable,fc1,0,") + kWwpn + ",3)", kOk, "/var/cards/2/vnics/fc1/boot",
         "boot-entry: 0\nboot-target-wwpn: 50:06:01:60:3b:e0:11:33\nboot-lun-id: 3\n", true,
         "fnicChild[2 BootTable fc1]", "<BootTableList><BootTable><boot-entry>0</boot-entry>"},
        {"fnicBTIndex:2/fc1/0,boot-lun-id:5", kOk, "/var/cards/2/vnics/fc1/boot", "boot-lun-id: 5\n", true,
         "fnicChild[2 BootTable fc1]", "<BootTableList><BootTable><boot-entry>0</boot-entry>"},
        {"deleteFnicChild(2,BootTable,fc1,0)", kOk, "/var/cards/2/vnics/fc1/boot", "boot-entry: 0", false, "", ""},
        // the tool refuses: its report is the message, nothing changed
        {"enicIndex:2/eth0,action:create", errorReply("error: vnic eth0 already exists\n"),
         "/var/cards/2/vnics/eth0/vnic", "mtu: 1500\n", true, "", ""},
        {"iscsiBootDelete(2,eth1)", errorReply("error: iSCSI boot is not configured on vnic eth1\n"),
         "/var/cards/2/vnics/eth1/vnic", "iscsi-boot: disabled\n", true, "", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.reply, ask("set=" + c.request)) << c.request;
        bool holds = root.exists(c.file) && root.readFile(c.file).find(c.text) != std::string::npos;
        EXPECT_EQ(c.present, holds) << c.request << "\n" << (root.exists(c.file) ? root.readFile(c.file) : "");
        if (!c.read.empty()) {
            std::string reply = ask("get=" + c.read);
            EXPECT_TRUE(isWellFormedXml(reply)) << c.read;
            EXPECT_NE(std::string::npos, reply.find(c.shown)) << c.read << "\n" << reply;
        }
    }
    // a boot-table change the tool refuses fails without a message of its own
    std::string reply = ask("set=deleteFnicChild(2,BootTable,fc0,9)");
    EXPECT_NE(std::string::npos, reply.find("<status>error</status>")) << reply;
    EXPECT_NE(std::string::npos, root.readFile("/var/cards/2/vnics/fc0/boot").find("boot-entry: 1\n"));
    EXPECT_TRUE(noPropertyFile());
}

// A tool that fails or cannot start: the request fails with its report, and
// no property file stays behind.
TEST_F(AdapterVnic, ToolFailureLeavesNoPropertyFile)
{
    const std::pair<const char*, const char*> faults[] = {
        {"mptool-vorn_add_vnic", "enicIndex:2/eth6,action:create,mtu:9000"},
        {"mptool-vorn_set_iscsiboot_params", "enicIndex:2/eth1,action:iscsiBootConfigure,target-port:3260"},
    };
    for (const auto& [fault, request] : faults) {
        root.writeFile(std::string("/var/cards/faults/") + fault, "error: card busy\nexit: 5\n");
        EXPECT_EQ(errorReply("error: card busy\n"), ask(std::string("set=") + request)) << fault;
        unlink(root.path(std::string("/var/cards/faults/") + fault).c_str());
    }
    EXPECT_FALSE(root.exists("/var/cards/2/vnics/eth6"));
    EXPECT_FALSE(root.exists("/var/cards/2/vnics/eth1/iscsi"));
    unlink(root.path("/opt/flash/halvric/bin/mptool").c_str());
    std::string reply = ask("set=enicIndex:2/eth6,action:create");
    EXPECT_NE(std::string::npos, reply.find("<status>error</status>")) << reply;
    EXPECT_TRUE(noPropertyFile());
}

// Hostile text in every argument of these operations is refused before any
// tool runs; the canary file is never made and no property file is left.
TEST_F(AdapterVnic, HostileTextRunsNothing)
{
    const std::string canary = root.path("/tmp/canary");
    const std::string hostile[] = {"$(touch " + canary + ")", "9000\nvlan 5", std::string(300, 'n')};
    // clang-format off
    const std::string forms[] = {
        "enicIndex:2/eth5,action:modify,mtu:%", "enicIndex:2/eth0,action:iscsiBootConfigure,initiator-priority:%",
        "enicIndex:2/eth0,action:usnicConfigure,usnic-count:%",
        std::string("createFnicChild(2,BootTable,%,1,") + kWwpn + ",3)",
        std::string("createFnicChild(2,BootTable,fc0,%,") + kWwpn + ",3)",
        "createFnicChild(2,BootTable,fc0,1,%,3)", "fnicBTIndex:2/fc0/%", "fnicBTIndex:2/fc0/1,boot-lun-id:%"};
    // clang-format on
    ask("set=deleteVnic(2,nothing)");  // lists the cards once
    size_t before = mptoolRuns();
    for (const std::string& text : hostile) {
        for (const std::string& form : forms) {
            std::string request = form;
            request.replace(request.find('%'), 1, text);
            std::string reply = ask("set=" + request);
            EXPECT_TRUE(isWellFormedXml(reply)) << request;
            EXPECT_NE(std::string::npos, reply.find("<status>error</status>")) << request << "\n" << reply;
        }
    }
    EXPECT_FALSE(root.exists("/tmp/canary"));
    EXPECT_EQ(before, mptoolRuns());
    EXPECT_TRUE(noPropertyFile());
}

}  // namespace
