// The console and service requests against the real server: who gets which
// launch document or token reply, the change events as aimctl shows them,
// and the capture settings with their recordings, trigger and clean-up.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "TestRoot.h"

namespace {

const char kOk[] = "<root><status>ok</status>\n</root>\n";

class Console : public testing::Test {
protected:
    void SetUp() override
    {
        root = std::make_unique<TestRoot>(true);
        gds = std::make_unique<GdsProcess>(*root);
        ASSERT_TRUE(gds->start()) << gds->output();
    }

    // The reply text; a request that gets no reply at all ends after 300 ms
    // of silence with "".
    std::string ask(const std::string& text, uint32_t privileges = 0x7f)
    {
        GDSClient::Options o;
        o.port = gds->legacyPort();
        o.privileges = privileges;
        o.replyEnd = GDSClient::ReplyEnd::kIdle;
        o.idleMs = 300;
        GDSClient client(o);
        client.connect();
        return client.request(text).text;
    }

    // Output of a command run with this test's root.
    std::string run(const std::string& command)
    {
        std::string out;
        FILE* p = popen(command.c_str(), "r");
        char buf[4096];
        for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) {
            out.append(buf, n);
        }
        if (p != nullptr) {
            pclose(p);
        }
        return out;
    }

    // `aimctl events` (or calls) without the time column.
    std::string aimctl(const char* what)
    {
        std::istringstream lines(run(TestRoot::binDir() + "/aimctl " + what));
        std::string line, out;
        while (std::getline(lines, line)) {
            out += line.substr(line.find(' ') + 1) + "\n";
        }
        return out;
    }

    std::unique_ptr<TestRoot> root;
    std::unique_ptr<GdsProcess> gds;
};

TEST_F(Console, PrivilegeMatrix)
{
    const char* requests[] = {
        "viewer.jnlp(192.0.2.10@0@c@443@17@4@s)",
        "bootCapture.jnlp(192.0.2.10@0@c@443@17@4@s)",
        "kvm.jnlp(192.0.2.10@u@p)",
        "get=genComputeTokens(17@4)",
        "set=videoBootCapture(1,0)",
        "set=sshTimeout:600",
    };
    // What each reply begins with ("" : no reply data at all).
    const std::string doc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<jnlp codebase=\"https://192.0.2.10:443/*\"";
    const std::string tokens = "<root><tmpAuthName>vkvm-";
    const std::string ok = kOk;
    const std::string refused = "<root><status>error</status><errorMsg>Insufficient privileges.</errorMsg></root>";
    const std::string refusedVideo = "<root><status>error</status><errorMsg>Insufficient privileges</errorMsg></root>";
    const struct {
        uint32_t mask;
        std::string replies[6];
    } rows[] = {
        {0x00, {"", "", doc, refused, refusedVideo, ok}},      {0x02, {"", "", doc, refused, ok, ok}},
        {0x08, {"", "", doc, tokens, refusedVideo, refused}},  {0x20, {doc, doc, doc, refused, refusedVideo, refused}},
        {0x40, {"", "", doc, refused, refusedVideo, refused}}, {0x7f, {doc, doc, doc, tokens, ok, ok}},
    };
    for (const auto& row : rows) {
        for (int i = 0; i < 6; ++i) {
            std::string reply = ask(requests[i], row.mask);
            std::string what = std::string(requests[i]) + " mask " + std::to_string(row.mask);
            if (row.replies[i].empty()) {
                EXPECT_EQ("", reply) << what;
            } else {
                EXPECT_EQ(0u, reply.find(row.replies[i])) << what << "\n" << reply;
            }
            if (row.replies[i] == doc) {
                bool vm = (row.mask & 0x40) != 0 || i == 2;  // kvm.jnlp tests no bit
                EXPECT_NE(std::string::npos, reply.find(vm ? "vmprivilege=true" : "vmprivilege=false")) << what;
            }
        }
    }
}

TEST_F(Console, ServiceChangesAsAimctlShowsThem)
{
    run(TestRoot::binDir() + "/aimctl clear-log");
    EXPECT_EQ(kOk, ask("set=webEnabled:1,sshPort:2222,redfishEnabled:0", 0x02));
    // SSH payload: state 2, then the restart command NUL-padded to 64 bytes.
    std::string command;
    for (unsigned char c : std::string("/etc/init.d/sshd-init restart ")) {
        char hex[3];
        snprintf(hex, sizeof hex, "%02x", c);
        command += hex;
    }
    EXPECT_EQ("- gui_event_config_changed 01000000\n- pm_event_ssh_config_changed 02000000" + command +
                  std::string(2 * 34, '0') + "\n- event_redfish_config_changed -\n",
              aimctl("events"));
    EXPECT_EQ("", aimctl("calls"));
    EXPECT_EQ("<root><sshPort>2222</sshPort>\n<status>ok</status>\n</root>\n", ask("get=sshPort"));

    // Names the service agent does not serve are stored without events.
    run(TestRoot::binDir() + "/aimctl clear-log");
    EXPECT_EQ(kOk, ask("set=scEnabled:1,telnetPort:2323,romDisabled:1", 0x02));
    EXPECT_EQ("", aimctl("events"));
    EXPECT_EQ("", aimctl("calls"));
}

TEST_F(Console, CaptureSettingsRecordingsAndCleanUp)
{
    std::string reply = ask("get=videoBootCapture,videoCrashCapture");
    EXPECT_NE(std::string::npos, reply.find("<bootCaptureFilename>bootcapture_20240301_101500.dvc<")) << reply;
    EXPECT_NE(std::string::npos, reply.find("<crashCaptureFilename>crashcapture_20240302_231105.dvc<")) << reply;
    EXPECT_EQ(std::string::npos, reply.find("CreationTime>NA<")) << reply;
    EXPECT_NE(std::string::npos,
              ask("crashCapture.jnlp(10.0.0.5@0@c@443@17@4@s)", 0x20)
                  .find("dvcurl=https://10.0.0.5:443/crashcaptures/crashcapture_20240302_231105.dvc<"));

    run(TestRoot::binDir() + "/aimctl clear-log");
    EXPECT_EQ(kOk, ask("set=crashCaptureEnabled:1,crashCaptureTrigger:1"));
    EXPECT_EQ(0u, aimctl("events").find("4 event_server_crash 766578696c5f646174615f"));

    EXPECT_TRUE(root->exists("/tmp/video/video_0001.dvr"));
    EXPECT_EQ(kOk, ask("set=videoCrashCapture:0,videoBootCapture(0,0)", 0x02));
    EXPECT_FALSE(root->exists("/tmp/video/video_0001.dvr"));
    EXPECT_EQ("0\n", run(TestRoot::binDir() + "/aimctl get pm_bool_capture_boot_sequence"));
}

}  // namespace
