// Adapter configuration transfers and firmware updates against the real
// server, the simulated cards, remote servers (/var/remote/<host>) and
// update script: round trips, every failure step with nothing left behind,
// update to activation and cancellation, and two connections updating at once.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "TestRoot.h"

namespace {

const std::string kOk = "<root><status>ok</status>\n</root>\n";
const char kPassword[] = "S3cret~pw";
const char kImage[] = "/firmware/hvc-5.2.bin";  // on 192.0.2.9, version 5.2(1a)

std::string errorReply(const std::string& message)
{
    return "<root><status>error</status><errorMsg>" + message + "</errorMsg></root>";
}

class AdapterTransfer : public testing::Test {
protected:
    void SetUp() override
    {
        root.writeFile("/var/remote/.credentials/192.0.2.10", std::string("admin:") + kPassword + "\n");
        root.writeFile("/var/remote/192.0.2.10/firmware/fw.bin", "version: 5.3(2b)\n");
        root.makeDirs("/var/remote/2001:db8::9");
        for (const char* card : {"1", "2"}) {
            root.writeFile(std::string("/var/cards/") + card + "/vnics/eth5/vnic",
                           "name: eth5\ntype: eth\norder: 4.0\n");
        }
        gds.setEnv("GDS_ADAPTER_PAUSE_SCALE", "0.01");
        gds.setEnv("GDS_LOG_LEVEL", "9");  // every log line, to look for the password
        ASSERT_TRUE(gds.start()) << gds.output();
    }

    std::string ask(const std::string& text)
    {
        GDSClient::Options o;
        o.port = gds.legacyPort();
        o.privileges = 0x02;
        o.replyTimeoutMs = 30000;  // tools run on a busy machine
        GDSClient client(o);
        client.connect();
        return client.request(text).text;
    }
    std::string set(const std::string& call) { return ask("set=" + call); }
    // Polls until a card's update status holds `text` (false after about a minute).
    bool waitStatus(int slot, const std::string& text)
    {
        for (int i = 0; i < 600; ++i) {
            if (root.readFile("/var/cards/" + std::to_string(slot) + "/fwstatus").find(text) != std::string::npos) {
                return true;
            }
            usleep(100000);
        }
        return false;
    }
    void expectNothingLeft(const std::string& context)
    {
        for (const char* file :
             {"/mnt/scratchpad/ie_config.xml", "/mnt/scratchpad/mpfw.bin", "/var/blade-power/locked"}) {
            EXPECT_FALSE(root.exists(file)) << context << ": " << file;
        }
        EXPECT_EQ(0, system(("! ls '" + root.path("/tmp") + "' | grep -q mpt_").c_str())) << context;
    }

    TestRoot root{true};
    GdsProcess gds{root};
};

// Export to a remote server, change the card, import: the card is back.
// The same for all cards, and an IPv6 server. The password reaches the
// server (it refuses others) but no log.
TEST_F(AdapterTransfer, ExportImportRoundTrips)
{
    const std::string credentials = std::string(",admin,") + kPassword + ")";
    EXPECT_EQ(kOk, set("adapterConfig(2,1,ftp,192.0.2.10,/cfg/card2.xml" + credentials));
    EXPECT_NE(std::string::npos,
              root.readFile("/var/remote/192.0.2.10/cfg/card2.xml").find("<file path=\"vnics/eth1/vnic\">"));
    EXPECT_EQ(kOk, set("deleteVnic(2,eth5)"));
    EXPECT_EQ(kOk, set("uplinkSpeed(2,1,1Gbps)"));
    EXPECT_EQ(kOk, set("adapterConfig(2,0,ftp,192.0.2.10,/cfg/card2.xml" + credentials));
    EXPECT_NE(std::string::npos, ask("get=enic[2 eth5]").find("<name>eth5</name>"));
    EXPECT_NE(std::string::npos, root.readFile("/var/cards/2/uplinks/1").find("admin-speed: Auto"));
    expectNothingLeft("one card");

    EXPECT_EQ(kOk, set("adapterConfig(1,1,tftp,2001\\:db8\\:\\:9,/c1.xml,,)"));
    EXPECT_NE(
        std::string::npos,
        root.readFile("/var/remote/curl.log").find("tftp://[2001:db8::9]//c1.xml --connect-timeout 10 --globoff"));
    EXPECT_EQ(kOk, set("adapterConfig(all,1,tftp,192.0.2.9,/all.xml,,)"));
    std::string all = root.readFile("/var/remote/192.0.2.9/all.xml");
    EXPECT_NE(std::string::npos, all.find("<slot number=\"1\">"));
    EXPECT_NE(std::string::npos, all.find("<slot number=\"2\">"));
    root.writeFile("/var/remote/192.0.2.10/all.xml", all);
    EXPECT_EQ(kOk, set("deleteVnic(1,eth5)"));
    EXPECT_EQ(kOk, set("adapterConfig(all,0,ftp,192.0.2.10,/all.xml" + credentials));
    EXPECT_NE(std::string::npos, ask("get=enic[1 eth5]").find("<name>eth5</name>"));
    EXPECT_NE(std::string::npos, ask("get=allKORIEStatus").find("<allKORIEStatus>Import Completed"));
    expectNothingLeft("all cards");

    // The stand-in's record of argument vectors (/var/safeexec/commands) is a
    // test aid that holds every argument; these are the logs.
    for (const std::string& log : {gds.output(), root.readFile("/var/log/tlog"), root.readFile("/var/log/syslog"),
                                   root.readFile("/var/log/gds.log"), root.readFile("/var/remote/curl.log"),
                                   root.readFile("/var/cards/commands.log")}) {
        EXPECT_EQ(std::string::npos, log.find(kPassword)) << log;
    }
}

// Every failure step answers its message and leaves no configuration file,
// image, blade-power lock or property file behind, and no update mark.
TEST_F(AdapterTransfer, FailureSteps)
{
    root.writeFile("/var/remote/192.0.2.9/junk.xml",
                   "<?xml version=\"1.0\"?>\n<kor-config>\n<file path=\"../../x\">\n");
    struct Case {
        const char* fault;  // a file to write first ("" none), removed afterwards
        const char* request;
        std::string reply;
    };
    const Case cases[] = {
        {"", "adapterConfig(2,1)", errorReply("Export Failed - Remote Server IP is Invalid!")},
        {"/var/cards/faults/mptool-vorn_vniccfg_export", "adapterConfig(2,1,tftp,192.0.2.9,/x.xml,,)",
         errorReply("error during MP config export rc=1")},
        {"", "adapterConfig(2,1,ftp,192.0.2.10,/x.xml,admin,wrong)",
         errorReply("Login denied by Remote Server - PROTOCOL:IP[ftp:192.0.2.10]")},
        {"", "adapterConfig(2,1,tftp,192.0.2.77,/x.xml,,)",
         errorReply("error during transfer of xml config off BMC check PROTOCOL:IP:PATH (tftp:192.0.2.77:/x.xml)")},
        {"", "adapterConfig(2,1,scp,192.0.2.9,/x.xml,admin,pw)", errorReply("Failed to open host fingerprint file")},
        {"", "adapterConfig(2,0,ftp,192.0.2.10,/x.xml,admin,)",
         errorReply("Login denied by Remote Server - IP[192.0.2.10]")},
        {"", "adapterConfig(2,0,tftp,192.0.2.9,/none.xml,,)",
         errorReply("error during transfer of xml config to BMC check remote IP:PATH (192.0.2.9:/none.xml)")},
        {"", "adapterConfig(2,0,tftp,192.0.2.9,/junk.xml,,)", errorReply("error: invalid configuration file\n")},
        {"/var/cards/faults/ieAllKors", "adapterConfig(all,1)", errorReply("Export for All Adapters failed!")},
        {"", "adapterConfig(all,0,tftp,192.0.2.9,/none.xml,,)", errorReply("Import for All Adapters failed!")},
        {"", "adapterUpdate(tftp,192.0.2.9,/none.bin,,,0,2)",
         errorReply("Error during transfer KOR-FW to BRESK check remote IP:PATH (192.0.2.9:/none.bin)")},
        {"", "adapterUpdate(ftp,192.0.2.10,/firmware/fw.bin,admin,wrong,0,2)",
         errorReply("Login denied by Remote Server - IP[192.0.2.10]")},
        {"", "adapterActivate(9,2)", errorReply("Unexpected error")},  // no image 9
    };
    for (const Case& c : cases) {
        if (c.fault[0] != '\0') {
            root.writeFile(c.fault, "");
        }
        EXPECT_EQ(c.reply, set(c.request)) << c.request;
        expectNothingLeft(c.request);
        if (c.fault[0] != '\0') {
            unlink(root.path(c.fault).c_str());
        }
    }
    // an update script that cannot start: the mark and the lock go again
    unlink(root.path("/etc/scripts/mp-update.sh").c_str());
    EXPECT_NE(std::string::npos,
              set(std::string("adapterUpdate(tftp,192.0.2.9,") + kImage + ",,,0,2)").find("<status>error"));
    expectNothingLeft("no update script");
    EXPECT_EQ("lock\nunlock\n", root.readFile("/var/blade-power/calls"));
    EXPECT_EQ(std::string::npos, set("adapterUpdate(local,,,0,2)").find("underway"));
}

// Update with progress, activation of the new image, cancellation; and a
// cancellation that stops an update before its image is written.
TEST_F(AdapterTransfer, UpdateActivateCancel)
{
    root.writeFile("/var/cards/faults/mp-update-hold", "");
    EXPECT_EQ(kOk, set(std::string("adapterUpdate(tftp,192.0.2.9,") + kImage + ",,,0,2)"));
    EXPECT_TRUE(root.exists("/var/blade-power/locked"));
    ASSERT_TRUE(waitStatus(2, "update-status: in-progress\nupdate-progress: 10\n"));
    EXPECT_NE(std::string::npos,
              ask("get=adapterFWStatus[2]").find("<update-status>in-progress</update-status><update-progress>10<"));
    EXPECT_EQ(errorReply("update already underway cannot update now"),
              set("adapterUpdate(ftp,192.0.2.10,/firmware/fw.bin,admin," + std::string(kPassword) + ",0,1)"));
    unlink(root.path("/var/cards/faults/mp-update-hold").c_str());
    ASSERT_TRUE(waitStatus(2, "update-status: completed\nupdate-progress: 100\n"));
    EXPECT_EQ(kOk, set("adapterActivate(2,2)"));
    EXPECT_NE(std::string::npos,
              ask("get=adapterFW[2]").find("<fw-id>2</fw-id><version>5.2(1a)</version><state>running</state>"));
    EXPECT_NE(std::string::npos, root.readFile("/var/cardcfg/calls").find("bypass_reset_sequence 2\n"));
    EXPECT_EQ(kOk, set("adapterCancelUpdate()"));
    expectNothingLeft("after activation");

    root.writeFile("/var/cards/faults/mp-update-hold", "");
    EXPECT_EQ(kOk, set("adapterUpdate(ftp,192.0.2.10,/firmware/fw.bin,admin," + std::string(kPassword) + ",0,1)"));
    ASSERT_TRUE(waitStatus(1, "update-progress: 10\n"));
    EXPECT_EQ(kOk, set("adapterCancelUpdate(1)"));
    expectNothingLeft("cancelled");
    unlink(root.path("/var/cards/faults/mp-update-hold").c_str());
    ASSERT_TRUE(waitStatus(1, "update-status: cancelled"));
    EXPECT_EQ(std::string::npos, ask("get=adapterFW[1]").find("5.3(2b)"));
}

// Two connections ask for updates at once, again and again: exactly one
// starts, the other is refused, and one cancellation clears every mark.
TEST_F(AdapterTransfer, ConcurrentUpdates)
{
    for (int round = 0; round < 4; ++round) {
        root.writeFile("/var/cards/1/fwstatus", "update-status: idle\n");
        root.writeFile("/var/cards/2/fwstatus", "update-status: idle\n");
        std::string replies[2];
        std::thread other([&] { replies[1] = set(std::string("adapterUpdate(tftp,192.0.2.9,") + kImage + ",,,0,1)"); });
        replies[0] = set(std::string("adapterUpdate(tftp,192.0.2.9,") + kImage + ",,,0,2)");
        other.join();
        int winner = replies[0] == kOk ? 0 : 1;
        EXPECT_EQ(kOk, replies[winner]) << round;
        EXPECT_EQ(errorReply("update already underway cannot update now"), replies[1 - winner]) << round;
        EXPECT_TRUE(waitStatus(winner == 0 ? 2 : 1, "update-status: completed")) << round;
        EXPECT_EQ(kOk, set("adapterCancelUpdate()"));
        expectNothingLeft("round " + std::to_string(round));
    }
}

}  // namespace
