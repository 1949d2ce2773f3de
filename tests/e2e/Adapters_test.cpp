// Adapter reads and configuration against the real server and the simulated
// cards: every get form's reply, hostile names over the wire, tool failures of every kind, the set checks, actions and
// reset.
#include <gtest/gtest.h>

#include <unistd.h>

#include "GdsProcess.h"
#include "RawWire.h"
#include "ReplyText.h"
#include "TestRoot.h"
#include "XmlCheck.h"

namespace {

// A general error reply keeps what the tool printed before it failed in
// front of kGeneralError.
const std::string kOk = okReply("");

class Adapters : public testing::Test {
protected:
    void SetUp() override
    {
        gds.setEnv("GDS_ADAPTER_PAUSE_SCALE", "0.01");  // a reset's 5-second pauses take 50 ms
        ASSERT_TRUE(gds.start()) << gds.output();
    }

    std::string get(const std::string& items, uint32_t privileges = 0x7f) { return ask("get=" + items, privileges); }
    std::string ask(const std::string& text, uint32_t privileges) { return gds.ask(text, privileges); }
    // Runs of the card tool so far (any mention in the command log counts).
    size_t mptoolRuns() { return occurrences(root.readFile("/var/cards/commands.log"), "mptool"); }

    TestRoot root{true};
    GdsProcess gds{root};
};

// Every get form: the reply is well-formed, ok, and holds what the
// simulated cards say (in this order).
TEST_F(Adapters, EveryGetForm)
{
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"adapter",
         {"<root><AdapterList><Adapter><slot-number>1</slot-number><quaile-mac>70:df:2f:86:a1:10</quaile-mac>",
          "<Adapter><slot-number>2</slot-number><vorn-mac>70:df:2f:86:a2:20</vorn-mac><virtual-eth-if>vmp2",
          "<num-fc-host-ifs>2</num-fc-host-ifs></Adapter></AdapterList><status>ok"}},
        {"adapter[2 1]",
         {"<root><AdapterList><Adapter><slot-number>2</slot-number>",
          "<current-fw-version>5.1(3a)</current-fw-version>",
          "<passthrough>disabled</passthrough></Adapter><description>rack 4 uplink card</description></AdapterList>"
          "<pts-enic-count-resultList><pts-enic-count-result><pts-eth-count>2</pts-eth-count>"}},
        {"adapterFW[2]",
         {"<root><AdapterFWList><AdapterFW><fw-id>1</fw-id><version>5.1(3a)</version><state>running</state>"
          "</AdapterFW><AdapterFW><fw-id>2</fw-id>"}},
        {"adapterFWStatus[2]", {"<root><AdapterFWStatusList><AdapterFWStatus><update-status>idle</update-status>"}},
        {"tarqAdapterFWVerAndStatus[1]", {"<version>4.5(1b)</version>", "</AdapterFWList><AdapterFWStatusList>"}},
        {"adapterPcieLinkWidth[2]", {"<root><adapterPcieLinkWidth>x8</adapterPcieLinkWidth><status>ok"}},
        {"enic[2]", {"<root><EnicList><Enic><name>eth0</name>", "<Enic><name>eth1</name>", "</Enic></EnicList>"}},
        {"enic[2 eth0]", {"<root><EnicList><Enic><name>eth0</name><type>eth</type><order>0</order>"}},
        {"fnic[2]", {"<FnicList><Fnic><name>fc0</name>", "<Fnic><name>fc1</name>"}},
        {"ptsEnic[2]", {"<PTSEnicList><PTSEnic><name>eth1</name>", "</PTSEnic></PTSEnicList><status>ok"}},
        {"iscsiBoot[2]", {"<root><iscsiBootCount>1</iscsiBootCount>"}},
        {"iscsiBoot[2 eth0]", {"<iscsiBootList><iscsiBoot><name>eth0</name><iscsi-boot>enabled</iscsi-boot>"}},
        {"usnicConfig[2 eth0]", {"<usnicConfigList><usnicConfig><name>eth0</name><usnic-count>16</usnic-count>"}},
        {"fnicChild[2 BootTable fc0]",
         {"<BootTableList><BootTable><boot-entry>0</boot-entry>", "<BootTable><boot-entry>1</boot-entry>"}},
        {"fnicChild[1 Perbi fc0]", {"<PerbiList><Perbi><perbi-entry>0</perbi-entry>"}},
        {"adapterChild[2 Uplink]",
         {"<UplinkList><Uplink><uplink-id>0</uplink-id>", "<LinkStatusList><LinkStatus><uplink-id>0</uplink-id>",
          "<ConnectorInfoList><ConnectorInfo><uplink-id>0</uplink-id>"}},
        {"adapterChild[2 Uplink 3]", {"<root><status>ok</status>\n</root>\n"}},  // no such uplink: nothing shown
        {"adapterChild[2 PortProfiles 0]",
         {"<root><name>prof1</name><uplink-id>0</uplink-id><vlan>100</vlan><name>storage</name>"}},
        {"portProfileExists[2 0 prof1]", {"<port-profile-check>", "<port-profile-exists>yes</port-profile-exists>"}},
        {"channelStatus[2 0 eth0 5]", {"<channel-status-result>", "<channel-status>up</channel-status>"}},
        {"bootableVnicCount[2]",
         {"<root><boot-enabled-vnics-count>2</boot-enabled-vnics-count><max-bootable-vnics>4</max-bootable-vnics>"}},
        {"ptsEnicCount[2]", {"<pts-enic-count-resultList><pts-enic-count-result><pts-eth-count>2</pts-eth-count>"}},
        {"allAdapterDetails",
         {"<root><AdapterList><Adapter><slot-number>1</slot-number><card-type>HVC-1387</card-type><product-name>"
          "HVC-1387 Dual Port 40G MLOM</product-name><hw-revision>2</hw-revision><standby-power>enabled"
          "</standby-power><actions-blocked>no</actions-blocked></Adapter>"}},
        {"allKORIEStatus", {"<root><allKORIEStatus>NONE</allKORIEStatus>"}},
        {"numOfAdaptors,numOfFcHostIfs",
         {"<root><numOfAdaptors>2</numOfAdaptors>\n<numOfFcHostIfs>4</numOfFcHostIfs>"}},
        {"nextOrder", {"<root><nextOrder>NA</nextOrder><status>ok"}},
        {"isVnicAvailable[2]", {"<root><avail>1</avail><status>ok"}},
        // only the first adapter property of a request is answered
        {"isVnicAvailable,nextOrder", {"<root><nextOrder>NA</nextOrder><status>ok"}},
    };
    for (const auto& [request, fragments] : cases) {
        std::string reply = get(request);
        EXPECT_TRUE(isWellFormedXml(reply)) << request << "\n" << reply;
        EXPECT_NE(std::string::npos, reply.find("<status>ok</status>")) << request << "\n" << reply;
        size_t at = 0;
        for (const std::string& fragment : fragments) {
            size_t found = reply.find(fragment, at);
            EXPECT_NE(std::string::npos, found) << request << ": " << fragment << "\n" << reply;
            at = found == std::string::npos ? at : found + fragment.size();
        }
    }
    // the running/startup configuration section of the adapter never shows
    EXPECT_EQ(std::string::npos, get("adapter[2 1]").find("kor-"));
}

// Tool output of any shape and tools that fail in every way: an error reply
// or the elements that made sense, always a well-formed reply.
TEST_F(Adapters, ToolFailures)
{
    struct Case {
        const char* fault;  // file under /var/cards/faults
        std::string text;
        const char* request;
        std::string expected;  // whole reply (odd output shapes are the unit tests')
    };
    const Case cases[] = {
        {"mptool-vorn_getadapter", "---\nerror: Card not present\n...\nexit: 0\n", "adapter[2 1]",
         "<root><AdapterList><Adapter><error>Card not present</error></Adapter><description>rack 4 uplink card"
         "</description></AdapterList><status>error</status><errorMsg>Card not present</errorMsg></root>"},
        {"mptool-fwlist", "---\nfw-id: 1\nexit: 3\n", "adapterFW[2]", kGeneralError},
        {"mptool-fwstatus", "sleep: 0.5\n---\nupdate-status: idle\n...\nexit: 0\n", "adapterFWStatus[2]",
         "<root><AdapterFWStatusList><AdapterFWStatus><update-status>idle</update-status></AdapterFWStatus>"
         "</AdapterFWStatusList><status>ok</status>\n</root>\n"},
        {"mptool-vorn_bootable_vnics", "num-bootable-vnics: 3\nexit: 9\n", "bootableVnicCount[2]", kGeneralError},
        {"mptool-vorn_listethvnics", "exit: 1\n", "iscsiBoot[2]", kGeneralError},
        // the pipeline's status is its last command's
        {"cardutil-P", "PCIe link width:   x4\nexit: 1\n", "adapterPcieLinkWidth[2]",
         "<root><adapterPcieLinkWidth>x4</adapterPcieLinkWidth><status>ok</status>\n</root>\n"},
    };
    for (const Case& c : cases) {
        std::string file = "/var/cards/faults/" + std::string(c.fault);
        root.writeFile(file, c.text);
        std::string reply = get(c.request);
        EXPECT_TRUE(isWellFormedXml(reply)) << c.fault << "\n" << reply;
        if (c.expected == kGeneralError) {
            EXPECT_TRUE(endsWith(reply, kGeneralError)) << c.fault << "\n" << reply;
        } else {
            EXPECT_EQ(c.expected, reply) << c.fault;
        }
        unlink(root.path(file).c_str());
    }
    // a missing tool
    unlink(root.path("/opt/flash/halvric/bin/mptool").c_str());
    EXPECT_TRUE(endsWith(get("adapterFW[2]"), kGeneralError));
    unlink(root.path("/usr/local/bin/cardutil").c_str());
    EXPECT_TRUE(endsWith(get("adapter"), kGeneralError));
}

// Hostile names over the wire (the unit tests try every form and text):
// refused before any command runs; the canary file is never made.
TEST_F(Adapters, HostileNames)
{
    size_t before = mptoolRuns();
    EXPECT_NE(std::string::npos,
              get("enic[2 `touch " + root.path("/tmp/canary") + "`]").find("<status>error</status>"));
    EXPECT_FALSE(root.exists("/tmp/canary"));
    EXPECT_EQ(before, mptoolRuns());
    // a line end splits the token forms (a plain separator there) but is
    // refused inside a slot-first name
    EXPECT_NE(std::string::npos, get("enic[2 a\nb]").find("<errorMsg>Invalid characters in an argument of enic"));
    // "../" is a plain word for the shell; the tool refuses it as a name
    EXPECT_TRUE(endsWith(get("enic[2 ../card]"), kGeneralError));
}

// A listing that fails or says nothing leaves no cards to resolve.
TEST_F(Adapters, ListingFailures)
{
    const char* faults[][3] = {{"no listing\nexit: 0\n", "adapter[1 1]", "adapter"},
                               {"---\nslot-number: 1\nexit: 4\n", "enic[1]", "enic"}};
    for (auto& [text, request, method] : faults) {
        root.writeFile("/var/cards/faults/cardutil-L", text);
        EXPECT_EQ(errorReply(std::string("1 not a managed card for method ") + method + ". 0 cards are discovered"),
                  get(request));
    }
    root.writeFile("/var/cards/faults/cardutil-L", "exit: 2\n");
    EXPECT_EQ("<root><numOfAdaptors>0</numOfAdaptors>\n<status>ok</status>\n</root>\n", get("numOfAdaptors"));
}

// Every check of a configuration request answers with its message before
// anything runs on a card (the vNIC and boot-table changes that pass are the
// vNIC tests', transfers the transfer tests').
TEST_F(Adapters, SetChecks)
{
    const std::pair<const char*, std::string> cases[] = {
        {"deleteVnic(2,eth5)", kGeneralError},  // the card has no eth5
        {"deleteVnic(1,eth0)", errorReply("invalid card/vnic name/default vnic passed to deleteVnic 1/eth0")},
        {"deleteVnic(2)", errorReply("invalid arg count to deleteVnic, expecting 2 received 1")},
        {"deleteVnic(9,eth5)", errorReply("9 not a managed card for method deleteVnic. 2 cards are discovered")},
        {"iscsiBootDelete(0,eth0)", errorReply("invalid card/vnic name passed to deleteISCSIBoot 0/eth0")},
        // refused text is shown as it came, escaped for the reply
        {"adapterReset(-1)", errorReply("-1 is not a valid slot.")},
        {"adapterReset(a<b\\&c\x01)", errorReply("a&lt;b&amp;c\\x01 is not a valid slot.")},
        {"adapterIndex:$x", errorReply("invalid adapter index specified in $x ")},
        {"adapterIndex:2,lldp:-on", errorReply("valid values for lldp are enabled | disabled) -on ")},
        {"adapterReset(1,2)", errorReply("invalid argument counted for adapterReset(slot)")},
        {"adapterReset(7)", errorReply("Failed adapter reset. Card in slot 7 not found.")},
        {"adapterFactoryReset(7)", errorReply(" adapterFactoryReset invalid card (7) passed ")},
        {"uplinkSpeed(1,3,40Gbps)", errorReply("Failed to set uplink speed: error: uplink 3 not found\n")},
        {"uplinkSpeed(1,4,40Gbps)", errorReply("4 is not a valid uplink.")},
        {"uplinkSpeed(1,1,40gbps)", errorReply("40gbps is not a valid uplink speed.")},
        {"uplinkSpeed(0,1,Auto)", errorReply("0 is not a valid card.")},
        {"linkTraining(1,0)",
         errorReply("Invalid number of parameters (2) for linkTraining(slot, uplinkId=0|1, link_training=on|off")},
        {"linkTraining(1,0,on)", kOk},
        {"adapterIndex:2,description:rack 4,fip-mode:Enabled,lldp:disabled", kOk},
        {"adapterIndex:2,vntag-mode:Enable", errorReply("valid values for vntag-mode are enabled | disabled) Enable ")},
        {"adapterIndex:2,fip-mode:on", errorReply("valid values for fip-mode are enable | disable) on ")},
        {"adapterIndex:2,pts-enic-count:112", kOk},
        {"adapterIndex:2,pts-enic-count:113", errorReply("pts-enic-count must be with in the range of 0 to 112")},
        {"adapterIndex:2,pts-enic-count:-1", errorReply("pts-enic-count must be with in the range of 0 to 112")},
        {"adapterIndex:2,description:0123456789012345678901234567890123456789012345678901234567890123", kOk},
        {"adapterIndex:2,description:01234567890123456789012345678901234567890123456789012345678901234",
         errorReply("maximum length exceeded for description")},
        {"enicIndex:2/eth5,action:delete",
         errorReply("'action' property has invalid value in user request for vNIC eth5")},
        {"enicIndex:2/eth5,mtu:9000", errorReply("'action' property is missing in user request for vNIC eth5")},
        {"enicIndex:2eth5,action:create", errorReply("vnicIndex in invalid format expecting slot/vnic_name got 2eth5")},
        {"enicIndex:2/eth5,action:create,mtu:90000",
         errorReply("Validation failed for property mtu: 90000 (valid: 1500 to 9000)")},
        {"enicIndex:2/eth5,action:usnicConfigure",
         errorReply("Cannot configure USNIC interfaces for vNIC eth5. Missing USNIC interfaces count property.")},
        {"fnicIndex:2/fc0,action:iscsiBootConfigure",
         errorReply("'action' property has invalid value in user request for vNIC fc0")},
        {"fnicBTIndex:2/fc0/1/4", errorReply("fnicBTIndex in invalid format expecting slot/vnic_name/child_index got "
                                             "2/fc0/1/4")},
        {"createFnicChild(2,BootTable,fc0,2,zz,3)",
         errorReply("Validation failed for property boot-target-wwpn: zz (valid: eight hexadecimal byte pairs joined "
                    "by colons)")},
        {"createFnicChild(2,Perbi,fc0,2,50\\:06\\:01\\:60\\:3b\\:e0\\:11\\:22,3)",
         errorReply(" createFnicChild invalid card/childClass (2/Perbi) passed")},
        {"deleteFnicChild(2,BootTable,fc0)",
         errorReply("invalid argument counted (3) for deleteFnicChild(slot,child_class,fnic_name,index)")},
        {"clearPersistentBindings(2)",
         errorReply("invalid argument counted for clearPeristentBindings(slot,fnic_name)")},
        {"adapterConfig(0,1)", errorReply("Card slot cannpt be 0")},
        {"adapterConfig(all,1)", kOk},
        {"adapterConfig(2,3)", errorReply("invalid parameters passed to adapterConfig(slot, import=0|export=1,"
                                          "[remoteProtocol,remoteIP,remotepath,remoteUsername, remotePassword])")},
        {"adapterActivate(1,2,7)", errorReply("invalid slot 7 passed to adapterActivate)")},
        {"adapterActivate()", errorReply("invalid argument counted for adapterActivate(fw_id, 1, 2,... slotN)")},
        {"adapterCancelUpdate(1,2)", kOk},
        {"adapterUpdate(tftp)", errorReply("invalid argument count!")},
        {"adapterStandby(2,0,1)", kOk},
        {"adapterStandby(2,2)", errorReply("invalid cardId/action passed to adapterPowerControl2/2")},
    };
    for (const auto& [request, expected] : cases) {
        std::string reply = ask(std::string("set=") + request, 0x02);
        EXPECT_TRUE(expected == kGeneralError ? endsWith(reply, expected) : reply == expected) << request << "\n"
                                                                                               << reply;
    }
    // without the configuration bit nothing is looked at
    EXPECT_EQ(errorReply("Insufficient privileges for method deleteVnic "), ask("set=deleteVnic(1,eth0)", 0x7d));
    // standby off while the host is off would cut the management link
    root.writeFile("/var/aim/props/netMode", "str\n4\n");
    EXPECT_EQ(errorReply("Host power is off. Deactivating standby may cause loss of management connectivity."),
              ask("set=adapterStandby(2,0)", 0x02));
    // hostile texts run nothing
    const std::string canary = root.path("/tmp/canary");
    const std::string hostile[] = {"$(touch " + canary + ")", "-x"};
    // clang-format off
    const char* forms[] = {
        "deleteVnic(2,%)", "iscsiBootDelete(2,%)", "clearPersistentBindings(2,%)", "deleteFnicChild(2,BootTable,%,1)",
        "deleteFnicChild(2,BootTable,fc0,%)", "linkTraining(2,0,%)", "enicIndex:2/%,action:create",
        "enicIndex:2/eth5,action:create,%:1", "enicIndex:2/eth5,action:create,mtu:%", "fnicBTIndex:2/%/1",
        "adapterIndex:2,lldp:%"};
    // clang-format on
    for (const std::string& text : hostile) {
        for (const char* form : forms) {
            std::string request = form;
            request.replace(request.find('%'), 1, text);
            std::string reply = ask("set=" + request, 0x02);
            EXPECT_TRUE(isWellFormedXml(reply)) << request;
            EXPECT_NE(std::string::npos, reply.find("<status>error</status>")) << request;
        }
    }
    EXPECT_FALSE(root.exists("/tmp/canary"));
}

// Where a number is read, other text is refused with the tokenizer's message
// before any card tool, card call or power call runs.
TEST_F(Adapters, NonNumbersRunNothing)
{
    // clang-format off
    const char* const requests[] = {
        "adapterStandby(2,x)", "adapterStandby(2,0,x)", "uplinkSpeed(2,x,1Gbps)", "linkTraining(2,x,on)",
        "adapterConfig(2,x)", "createFnicChild(2,BootTable,fc0,2,50\\:06\\:01\\:60\\:3b\\:e0\\:11\\:22,x)",
        "adapterActivate(x,2)", "adapterUpdate(local,192.0.2.9,/fw.bin,x,2)",
        "adapterUpdate(tftp,192.0.2.9,/fw.bin,u,p,x,2)"};
    // clang-format on
    const char* const records[] = {"/var/cards/commands.log", "/var/cardcfg/calls", "/var/power/calls"};
    // card actions run through the safe-execution runner (the BIOS token
    // work runs its own commands there at the same time)
    const auto secureRuns = [&] {
        const std::string record = root.readFile("/var/safeexec/commands");
        size_t n = 0;
        for (const char* tool : {"cardutil", "mp-update", "blade-power", "ieAllKors"}) {
            n += occurrences(record, tool);
        }
        return n;
    };
    get("adapter");  // the card listing is read once before
    for (const char* request : requests) {
        const size_t secure = secureRuns();
        std::vector<std::string> before;
        for (const char* file : records) {
            before.push_back(root.readFile(file));
        }
        EXPECT_EQ(errorReply("Cannot parse int from \"x\""), ask(std::string("set=") + request, 0x02)) << request;
        EXPECT_EQ(secure, secureRuns()) << request;
        for (size_t i = 0; i < before.size(); ++i) {
            EXPECT_EQ(before[i], root.readFile(records[i])) << request << ": " << records[i];
        }
    }
    // a slot with text after its number is no slot
    EXPECT_EQ(errorReply("invalid cardId/action passed to adapterPowerControl0/1"),
              ask("set=adapterStandby(2x,1)", 0x02));
}

// The actions available so far change the simulated cards, and the reads
// show the change.
TEST_F(Adapters, SetActions)
{
    root.writeFile("/var/cards/2/vnics/eth5/vnic", "name: eth5\ntype: eth\norder: 4.0\nmtu: 1500\n");
    struct Case {
        const char* request;
        std::string reply;
        const char* file;      // a model file afterwards ("" none)
        const char* contains;  // a line it holds, or nullptr: the file is gone
    };
    const Case cases[] = {
        {"deleteVnic(2,eth5)", kOk, "/var/cards/2/vnics/eth5/vnic", nullptr},
        {"clearPersistentBindings(2,fc0)", kOk, "/var/cards/2/vnics/fc0/perbi", nullptr},
        {"adapterIndex:2,fip-mode:disable,lldp:disabled,description:rack 7", kOk, "/var/cards/2/card",
         "fip-mode: disable\nvntag-mode: disabled\nlldp: disabled\n"},
        {"adapterIndex:2,description:rack 7", kOk, "/var/cards/2/card", "description: rack 7\n"},
        {"adapterIndex:1,pts-enic-count:5", kOk, "/var/cards/1/card", "pts-enic-count: 5\n"},
        {"adapterIndex:2,portchannel:disabled", kOk, "/var/portChannelChanged", ""},
        {"adapterStandby(1,0,1)", kOk, "/var/cards/1/card", "standby-power: disabled\n"},
        {"adapterStandby(1,1)", kOk, "/var/cards/1/card", "standby-power: enabled\n"},
        {"adapterFactoryReset(1)", kOk, "/var/cards/1/card", "pts-enic-count: 0\n"},
        {"uplinkSpeed(2,1,4x10Gbps)", kOk, "/var/cards/2/uplinks/1", "admin-speed: 4x10Gbps\n"},
        {"linkTraining(2,1,off)", kOk, "/var/cards/2/uplinks/1", "an-link-training: off\n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.reply, ask(std::string("set=") + c.request, 0x02)) << c.request;
        if (c.contains == nullptr) {
            EXPECT_FALSE(root.exists(c.file)) << c.request;
        } else {
            EXPECT_NE(std::string::npos, root.readFile(c.file).find(c.contains)) << c.request;
        }
    }
    EXPECT_EQ(std::string::npos, get("enic[2]").find("eth5"));
    EXPECT_NE(std::string::npos, get("adapter[2 1]").find("<description>rack 7</description>"));
    // a failing parameter does not stop the next one; the request fails
    root.writeFile("/var/cards/faults/mptool-vorn_setadapter_param", "exit: 1\n");
    EXPECT_TRUE(endsWith(ask("set=adapterIndex:2,lldp:enabled,description:rack 9", 0x02), kGeneralError));
    EXPECT_NE(std::string::npos, root.readFile("/var/cards/2/card").find("description: rack 9\n"));
    root.writeFile("/var/cards/faults/mptool-vorn_configure_pts_eths", "error: no VM FEX here\nexit: 1\n");
    EXPECT_EQ(errorReply("Failed to configure VM FEX interfaces: error: no VM FEX here\n"),
              ask("set=adapterIndex:2,pts-enic-count:4", 0x02));
}

// A reset powers the host off and on around the card's deactivation when
// the host is on, and only toggles the card when it is off; a failed power
// change reactivates the card before the error.
TEST_F(Adapters, Reset)
{
    struct Case {
        const char* power;       // host power before ("1" on, "0" off)
        const char* powerFault;  // content of the power fault file, or nullptr
        std::string reply;
        std::string powerCalls;  // /var/power/calls afterwards
        std::string cardCalls;   // /var/cardcfg/calls afterwards
    };
    const Case cases[] = {
        {"1", nullptr, kOk, "SetPowerState 0\nSetPowerState 1\n", "set_card_as_inactive 2\nset_card_as_active 2\n"},
        {"0", nullptr, kOk, "", "set_card_as_inactive 2\nset_card_as_active 2\n"},
        {"1", "5", errorReply("General error: Power off host failed."), "SetPowerState 0\n",
         "set_card_as_inactive 2\nset_card_as_active 2\n"},
    };
    for (const Case& c : cases) {
        root.writeFile("/var/aim/props/pwState", std::string("int\n") + c.power + "\n");
        unlink(root.path("/var/power/calls").c_str());
        unlink(root.path("/var/cardcfg/calls").c_str());
        unlink(root.path("/var/power/faults/SetPowerState").c_str());
        if (c.powerFault != nullptr) {
            root.writeFile("/var/power/faults/SetPowerState", c.powerFault);
        }
        std::string reply = ask("set=adapterReset(2)", 0x02);
        EXPECT_TRUE(reply == c.reply || endsWith(reply, c.reply.substr(6))) << c.power << "\n" << reply;
        EXPECT_EQ(c.powerCalls, root.readFile("/var/power/calls")) << c.power;
        EXPECT_EQ(c.cardCalls, root.readFile("/var/cardcfg/calls")) << c.power;
        EXPECT_NE(std::string::npos, root.readFile("/var/cards/2/card").find("active: yes")) << c.power;
    }
    EXPECT_EQ("int\n1\n", root.readFile("/var/aim/props/pwState"));
    // the audit lines (off, on, and the failed off) reach the root's syslog
    EXPECT_EQ(3u, occurrences(root.readFile("/var/log/syslog"), "AUDIT: Server power state modify (op:power-o"));
    // a card type that cannot be reset
    root.writeFile("/var/cards/1/card", "type-code: 7\n" + root.readFile("/var/cards/1/card"));
    EXPECT_NE(std::string::npos,
              ask("set=adapterReset(1)", 0x02).find("This card type does not support the reset command."));
}

// Symbolic links planted under the fixed names in the shared /tmp before the
// server starts are refused, never followed: no target changes, and the
// server answers on (the BIOS token work stops: a planted folder is the
// token store's unit tests'; the adapter parameter goes to the tool's
// standard input, through no file at all).
TEST(PlantedLinks, AreNeverFollowed)
{
    TestRoot root{true};
    GdsProcess gds{root};
    const std::string victim = root.writeFile("/etc/victim", "9f:3a:c2\n");
    for (const char* name : {"/tmp/SlotInfo.txt", "/tmp/biosTokenLock", "/tmp/192.0.2.10_ssh_fingerprint"}) {
        ASSERT_EQ(0, symlink(victim.c_str(), root.path(name).c_str())) << name;
    }
    ASSERT_TRUE(gds.start()) << gds.output();
    EXPECT_TRUE(
        waitFor([&] { return root.readFile("/var/log/syslog").find("symbolic link") != std::string::npos; }, 15));
    EXPECT_TRUE(isWellFormedXml(gds.ask("get=AdapterMacAddressList", 0x7f)));
    EXPECT_EQ(kOk, gds.ask("set=adapterIndex:2,lldp:disabled", 0x02));
    EXPECT_NE(std::string::npos, root.readFile("/var/cards/2/card").find("lldp: disabled"));
    EXPECT_EQ(errorReply("Failed to open host fingerprint file"),
              gds.ask("set=adapterConfig(2,1,sftp,192.0.2.10,/c.xml,admin,pw)", 0x02));
    EXPECT_EQ("9f:3a:c2\n", root.readFile("/etc/victim"));
    EXPECT_TRUE(gds.isRunning());
}

}  // namespace
