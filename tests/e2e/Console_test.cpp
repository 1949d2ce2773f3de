// The console and service requests against the real server: who gets which
// launch document or token reply, the change events as aimctl shows them,
// and the clean-up of the recorded video.
#include <gtest/gtest.h>

#include <cstdio>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "TestRoot.h"

namespace {

const char kOk[] = "<root><status>ok</status>\n</root>\n";

class Console : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(gds.start()) << gds.output(); }

    // The reply text; a request that gets no reply ends after 300 ms of silence with "".
    std::string ask(const std::string& text, uint32_t privileges = 0x7f)
    {
        GDSClient::Options o;
        o.port = gds.legacyPort();
        o.privileges = privileges;
        o.replyEnd = GDSClient::ReplyEnd::kIdle;
        GDSClient client(o);
        client.connect();
        return client.request(text).text;
    }

    // Output of `aimctl <args>` on this test's root, without the time column.
    std::string aimctl(const std::string& args)
    {
        std::string out, line;
        FILE* p = popen((TestRoot::binDir() + "/aimctl " + args).c_str(), "r");
        for (char buf[4096]; p != nullptr && fgets(buf, sizeof buf, p) != nullptr;) {
            line = buf;
            out += line.substr(line.find(' ') + 1);
        }
        return p != nullptr && pclose(p) >= 0 ? out : "no aimctl";
    }

    TestRoot root{true};
    GdsProcess gds{root};
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
    const std::string tokens = "<root><tmpAuthName>vkvm-", ok = kOk;
    const std::string refused = "<root><status>error</status><errorMsg>Insufficient privileges.</errorMsg></root>";
    const std::string refusedVideo = "<root><status>error</status><errorMsg>Insufficient privileges</errorMsg></root>";
    const std::pair<uint32_t, std::vector<std::string>> rows[] = {
        {0x00, {"", "", doc, refused, refusedVideo, ok}},      {0x02, {"", "", doc, refused, ok, ok}},
        {0x08, {"", "", doc, tokens, refusedVideo, refused}},  {0x20, {doc, doc, doc, refused, refusedVideo, refused}},
        {0x40, {"", "", doc, refused, refusedVideo, refused}}, {0x7f, {doc, doc, doc, tokens, ok, ok}},
    };
    for (const auto& [mask, replies] : rows) {
        for (int i = 0; i < 6; ++i) {
            std::string reply = ask(requests[i], mask);
            std::string what = std::string(requests[i]) + " mask " + std::to_string(mask) + "\n" + reply;
            EXPECT_EQ(0u, replies[i].empty() ? reply.size() : reply.find(replies[i])) << what;
            if (replies[i] == doc) {  // kvm.jnlp tests no privilege bit
                bool vm = (mask & 0x40) != 0 || i == 2;
                EXPECT_NE(std::string::npos, reply.find(vm ? "vmprivilege=true" : "vmprivilege=false")) << what;
            }
        }
    }
}

TEST_F(Console, ServiceChangesAndVideoCleanUp)
{
    aimctl("clear-log");
    EXPECT_EQ(kOk, ask("set=webEnabled:1,sshPort:2222,redfishEnabled:0", 0x02));
    // SSH payload: state 2, then "/etc/init.d/sshd-init restart " NUL-padded to 64 bytes.
    EXPECT_EQ(
        "- gui_event_config_changed 01000000\n- pm_event_ssh_config_changed 02000000"
        "2f6574632f696e69742e642f737368642d696e6974207265737461727420" +
            std::string(2 * 34, '0') + "\n- event_redfish_config_changed -\n",
        aimctl("events"));
    EXPECT_EQ("", aimctl("calls"));
    EXPECT_EQ("<root><sshPort>2222</sshPort>\n<status>ok</status>\n</root>\n", ask("get=sshPort"));
    // Names the service agent does not serve are stored without events.
    aimctl("clear-log");
    EXPECT_EQ(kOk, ask("set=scEnabled:1,telnetPort:2323,romDisabled:1", 0x02));
    EXPECT_EQ("", aimctl("events") + aimctl("calls"));

    // Both captures off: the recorded video of this root goes.
    EXPECT_TRUE(root.exists("/tmp/video/video_0001.dvr"));
    EXPECT_EQ(kOk, ask("set=videoCrashCapture:0,videoBootCapture(0,0)", 0x02));
    EXPECT_FALSE(root.exists("/tmp/video/video_0001.dvr"));
    EXPECT_EQ("0\n", aimctl("get pm_bool_capture_boot_sequence"));
}

}  // namespace
