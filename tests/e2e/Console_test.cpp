// The console and service requests against the real server: who gets which
// launch document, token reply or setting change.
#include <gtest/gtest.h>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "TestRoot.h"

namespace {

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

    TestRoot root{true};
    GdsProcess gds{root};
};

TEST_F(Console, PrivilegeMatrix)
{
    // clang-format off
    const char* requests[] = {
        "viewer.jnlp(192.0.2.10@0@c@443@17@4@s)", "bootCapture.jnlp(192.0.2.10@0@c@443@17@4@s)",
        "kvm.jnlp(192.0.2.10@u@p)", "get=genComputeTokens(17@4)", "set=videoBootCapture(1,0)", "set=sshTimeout:600"};
    // clang-format on
    // What each reply begins with ("" : no reply data at all).
    const std::string doc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<jnlp codebase=\"https://192.0.2.10:443/*\"";
    const std::string tokens = "<root><tmpAuthName>vkvm-", ok = "<root><status>ok</status>\n</root>\n";
    const std::string refused = "<root><status>error</status><errorMsg>Insufficient privileges";
    const std::pair<uint32_t, std::vector<std::string>> rows[] = {
        {0x00, {"", "", doc, refused, refused, ok}},      {0x02, {"", "", doc, refused, ok, ok}},
        {0x08, {"", "", doc, tokens, refused, refused}},  {0x20, {doc, doc, doc, refused, refused, refused}},
        {0x40, {"", "", doc, refused, refused, refused}}, {0x7f, {doc, doc, doc, tokens, ok, ok}},
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

}  // namespace
