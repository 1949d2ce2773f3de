// Adapter configuration transfers and firmware updates against the real
// server, the simulated cards, remote servers (/var/remote/<host>) and
// update script: round trips, every failure step with nothing left behind,
// update to activation and cancellation, and two connections updating at once.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "GdsProcess.h"
#include "ProjectBinary.h"
#include "RawWire.h"
#include "ReplyText.h"
#include "TestRoot.h"

namespace {

const std::string kOk = okReply("");
const std::string kPassword = "S3cret~pw";
const std::string kUnderway = "update already underway cannot update now";

class AdapterTransfer : public testing::Test {
protected:
    void SetUp() override
    {
        root.writeFile("/var/remote/.credentials/192.0.2.10", "admin:" + kPassword + "\n");
        root.writeFile("/var/remote/192.0.2.10/fw.bin", "version: 5.3(2b)\n");
        root.makeDirs("/var/remote/2001:db8::9");
        for (const char* card : {"1", "2"}) {
            root.writeFile(std::string("/var/cards/") + card + "/vnics/eth5/vnic", "name: eth5\ntype: eth\norder: 4\n");
        }
        gds.setEnv("GDS_ADAPTER_PAUSE_SCALE", "0.01");
        gds.setEnv("GDS_LOG_LEVEL", "9");  // every log line, to look for the password
        ASSERT_TRUE(gds.start()) << gds.output();
    }

    std::string ask(const std::string& text) { return gds.ask(text, 0x02); }
    std::string set(const std::string& call) { return ask("set=" + call); }
    // Slot 2 from the tftp server (version 5.2(1a)), slot 1 from the ftp server (5.3(2b)).
    std::string update(int slot)
    {
        return set(slot == 2 ? "adapterUpdate(tftp,192.0.2.9,/firmware/hvc-5.2.bin,,,0,2)"
                             : "adapterUpdate(ftp,192.0.2.10,/fw.bin,admin," + kPassword + ",0,1)");
    }
    // Polls until a card's update status holds `text` (false after about a minute).
    bool waitStatus(int slot, const std::string& text)
    {
        const std::string file = "/var/cards/" + std::to_string(slot) + "/fwstatus";
        return waitFor([&] { return root.readFile(file).find(text) != std::string::npos; }, 60);
    }
    void expectNothingLeft(const std::string& context)
    {
        for (const char* file :
             {"/mnt/scratchpad/ie_config.xml", "/mnt/scratchpad/mpfw.bin", "/var/blade-power/locked"}) {
            EXPECT_FALSE(root.exists(file)) << context << ": " << file;
        }
    }

    TestRoot root{true};
    GdsProcess gds{root};
};

// Export, change the card, import: the card is back; the same for all cards.
// The password reaches the server (it refuses others) but no log.
TEST_F(AdapterTransfer, ExportImportRoundTrips)
{
    const std::string credentials = ",admin," + kPassword + ")";
    root.writeFile("/tmp/192.0.2.10_ssh_fingerprint", "9f:3a:c2\n");
    EXPECT_EQ(kOk, set("adapterConfig(2,1,sftp,192.0.2.10,/cfg/card2.xml" + credentials));
    EXPECT_NE(std::string::npos,
              root.readFile("/var/remote/curl.log").find("--connect-timeout 10 --hostpubmd5 9f:3a:c2\n"));
    EXPECT_FALSE(root.exists("/tmp/192.0.2.10_ssh_fingerprint"));
    EXPECT_EQ(kOk, set("deleteVnic(2,eth5)"));
    EXPECT_EQ(kOk, set("adapterConfig(2,0,ftp,192.0.2.10,/cfg/card2.xml" + credentials));
    EXPECT_NE(std::string::npos, ask("get=enic[2 eth5]").find("<name>eth5</name>"));

    EXPECT_EQ(kOk, set("adapterConfig(1,1,tftp,2001\\:db8\\:\\:9,/c1.xml,,)"));
    EXPECT_NE(
        std::string::npos,
        root.readFile("/var/remote/curl.log").find("tftp://[2001:db8::9]//c1.xml --connect-timeout 10 --globoff"));
    EXPECT_EQ(kOk, set("adapterConfig(all,1,tftp,192.0.2.9,/all.xml,,)"));
    root.writeFile("/var/remote/192.0.2.10/all.xml", root.readFile("/var/remote/192.0.2.9/all.xml"));
    EXPECT_EQ(kOk, set("deleteVnic(1,eth5)"));
    EXPECT_EQ(kOk, set("adapterConfig(all,0,ftp,192.0.2.10,/all.xml" + credentials));
    EXPECT_NE(std::string::npos, ask("get=enic[1 eth5]").find("<name>eth5</name>"));
    EXPECT_NE(std::string::npos, ask("get=allKORIEStatus").find(">Import Completed"));
    expectNothingLeft("round trips");
    for (const char* log : {"/var/log/tlog", "/var/log/syslog", "/var/remote/curl.log", "/var/cards/commands.log",
                            "/var/safeexec/commands"}) {
        EXPECT_EQ(std::string::npos, root.readFile(log).find(kPassword)) << log;
    }
    EXPECT_EQ(std::string::npos, gds.output().find(kPassword));
}

// Every failure step answers its message and leaves no configuration file,
// image or blade-power lock behind, and no update mark.
TEST_F(AdapterTransfer, FailureSteps)
{
    root.writeFile("/var/remote/192.0.2.9/junk.xml", "<?xml version=\"1.0\"?>\n<kor-config>\n<file path=\"../x\">\n");
    const char* const cases[][3] = {
        // fault file ("" none), request, message
        {"", "adapterConfig(2,1)", "Export Failed - Remote Server IP is Invalid!"},
        {"mptool-vorn_vniccfg_export", "adapterConfig(2,1,tftp,192.0.2.9,/x,,)", "error during MP config export rc=1"},
        {"", "adapterConfig(2,1,ftp,192.0.2.10,/x,admin,no)",
         "Login denied by Remote Server - PROTOCOL:IP[ftp:192.0.2.10]"},
        {"", "adapterConfig(2,1,tftp,192.0.2.7,/x,,)",
         "error during transfer of xml config off BMC check PROTOCOL:IP:PATH (tftp:192.0.2.7:/x)"},
        {"", "adapterConfig(2,1,scp,192.0.2.9,/x,admin,pw)", "Failed to open host fingerprint file"},
        {"", "adapterConfig(2,0,ftp,192.0.2.10,/x,admin,)", "Login denied by Remote Server - IP[192.0.2.10]"},
        {"", "adapterConfig(2,0,tftp,192.0.2.9,/x,,)",
         "error during transfer of xml config to BMC check remote IP:PATH (192.0.2.9:/x)"},
        {"", "adapterConfig(2,0,tftp,192.0.2.9,/junk.xml,,)", "error: invalid configuration file\n"},
        {"ieAllKors", "adapterConfig(all,1)", "Export for All Adapters failed!"},
        {"", "adapterConfig(all,0,tftp,192.0.2.9,/x,,)", "Import for All Adapters failed!"},
        {"", "adapterUpdate(tftp,192.0.2.9,/x,,,0,2)",
         "Error during transfer KOR-FW to BRESK check remote IP:PATH (192.0.2.9:/x)"},
        {"", "adapterUpdate(ftp,192.0.2.10,/fw.bin,admin,no,0,2)", "Login denied by Remote Server - IP[192.0.2.10]"},
        {"", "adapterActivate(9,2)", "Unexpected error"},  // the card has no image 9
    };
    for (const auto& [fault, request, message] : cases) {
        const std::string faultFile = std::string("/var/cards/faults/") + fault;
        if (fault[0] != '\0') {
            root.writeFile(faultFile, "");
        }
        EXPECT_EQ(errorReply(message), set(request)) << request;
        expectNothingLeft(request);
        unlink(root.path(faultFile).c_str());
    }
    // an update script that cannot start: the mark and the lock go again
    unlink(root.path("/etc/scripts/mp-update.sh").c_str());
    EXPECT_NE(std::string::npos, update(2).find("<status>error"));
    expectNothingLeft("no update script");
    EXPECT_EQ("lock\nunlock\n", root.readFile("/var/blade-power/calls"));
    EXPECT_EQ(std::string::npos, update(2).find(kUnderway));
}

// Update with progress, activation of the new image, cancellation; and a
// cancellation that stops an update before its image is written.
TEST_F(AdapterTransfer, UpdateActivateCancel)
{
    root.writeFile("/var/cards/faults/mp-update-hold", "");
    EXPECT_EQ(kOk, update(2));
    EXPECT_TRUE(root.exists("/var/blade-power/locked"));
    ASSERT_TRUE(waitStatus(2, "update-progress: 10\n"));
    EXPECT_NE(std::string::npos, ask("get=adapterFWStatus[2]").find("<update-status>in-progress</update-status>"));
    EXPECT_EQ(errorReply(kUnderway), update(1));
    unlink(root.path("/var/cards/faults/mp-update-hold").c_str());
    ASSERT_TRUE(waitStatus(2, "update-status: completed\nupdate-progress: 100\n"));
    EXPECT_EQ(kOk, set("adapterActivate(2,2)"));
    EXPECT_NE(std::string::npos, ask("get=adapterFW[2]").find("<version>5.2(1a)</version><state>running</state>"));
    EXPECT_NE(std::string::npos, root.readFile("/var/cardcfg/calls").find("bypass_reset_sequence 2\n"));
    EXPECT_EQ(kOk, set("adapterCancelUpdate()"));
    expectNothingLeft("after activation");

    root.writeFile("/var/cards/faults/mp-update-hold", "");
    EXPECT_EQ(kOk, update(1));
    ASSERT_TRUE(waitStatus(1, "update-progress: 10\n"));
    EXPECT_EQ(kOk, set("adapterCancelUpdate(1)"));
    expectNothingLeft("cancelled");
    unlink(root.path("/var/cards/faults/mp-update-hold").c_str());
    ASSERT_TRUE(waitStatus(1, "update-status: cancelled"));
    EXPECT_EQ(std::string::npos, ask("get=adapterFW[1]").find("5.3(2b)"));
}

// Two connections ask for updates at once, again and again: exactly one
// starts, and one cancellation clears every mark.
TEST_F(AdapterTransfer, ConcurrentUpdates)
{
    for (int round = 0; round < 4; ++round) {
        std::string replies[3];
        std::thread other([&] {
            try {
                replies[1] = update(1);
            } catch (const std::exception& e) {  // an exception here would abort the whole test program
                replies[1] = e.what();
            }
        });
        replies[2] = update(2);
        other.join();
        int winner = replies[1] == kOk ? 1 : 2;
        EXPECT_EQ(kOk, replies[winner]) << round;
        EXPECT_EQ(errorReply(kUnderway), replies[3 - winner]) << round;
        EXPECT_TRUE(waitStatus(winner, "update-status: completed")) << round;
        EXPECT_EQ(kOk, set("adapterCancelUpdate()"));
        expectNothingLeft("round " + std::to_string(round));
        root.writeFile("/var/cards/" + std::to_string(winner) + "/fwstatus", "update-status: idle\n");
    }
}

}  // namespace
