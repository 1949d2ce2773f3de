// The KVM launch documents (golden files byte for byte, well-formed XML for every input), refusals of
// bad argument lists, the token reply and the session manager's credentials in them.
#include <gtest/gtest.h>

#include <sstream>

#include "AIMClient.h"
#include "AgentHarness.h"
#include "ReplyText.h"
#include "XmlCheck.h"

namespace {

bool has(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

class JNLPAgent : public testing::Test {
protected:
    void SetUp() override
    {
        h.server().setDefaultProperties();
        aim.initialize();
        aim.setProperty("webHTTPSPort", 8443, true);
        aim.setProperty("rp_int_apcp_port", 5900, true);
        system(("rm -rf '" + h.root().path("/tmp/bootcapture") + "' '" + h.root().path("/tmp/crashcapture") + "'")
                   .c_str());
        h.root().writeFile("/tmp/bootcapture/boot_0001.dvc", "b");
        h.root().writeFile("/tmp/crashcapture/crash_0001.dvc", "c");
    }

    // The session manager's credential records: kind, session, privilege, user, password.
    std::vector<std::vector<std::string>> credentials()
    {
        std::vector<std::vector<std::string>> records;
        std::istringstream lines(h.root().readFile("/var/session/credentials"));
        for (std::string line, time, field; std::getline(lines, line);) {
            std::istringstream in(line);
            for (in >> time, records.emplace_back(); in >> field;) {
                records.back().push_back(field);
            }
        }
        return records;
    }

    AgentHarness h;
    AIMClient aim{"test", 1};
};

TEST_F(JNLPAgent, DocumentsMatchTheGoldenFiles)
{
    const std::tuple<const char*, int, const char*> cases[] = {
        {"viewer.jnlp(10.0.0.5@0@123@8443@17@4@abc)", 0x7f, "viewer_ipv4.jnlp"},
        {"viewer.jnlp(fe80::1@1@123@8443@17@4@abc)", 0x20, "viewer_ipv6.jnlp"},
        {"kvm.jnlp(192.0.2.10@admin@se@cret)", 0x00, "kvm.jnlp"},
        {"bootCapture.jnlp(10.0.0.5@0@123@80@17@4@sess-42)", 0x60, "bootCapture_ipv4.jnlp"},
        {"crashCapture.jnlp(fe80::1@1@123@8443@17@4@sess-42)", 0x20, "crashCapture_ipv6.jnlp"},
    };
    for (const auto& [request, mask, file] : cases) {
        std::string document = h.request(request, mask);
        std::string expected = golden(file);
        // Only the live console carries credentials, fresh ones each time;
        // the capture players are issued some all the same.
        auto issued = credentials();
        if (has(expected, "{{USER}}")) {
            ASSERT_FALSE(issued.empty());
            ASSERT_EQ((std::vector<std::string>{"90", "17", "4"}),
                      std::vector<std::string>(issued.back().begin(), issued.back().begin() + 3));
            expected.replace(expected.find("{{USER}}"), 8, issued.back()[3]);
            expected.replace(expected.find("{{PASSWORD}}"), 12, issued.back()[4]);
        }
        EXPECT_EQ(expected, document) << file;
        EXPECT_TRUE(isWellFormedXml(document)) << file;
    }
    EXPECT_EQ(4u, credentials().size());  // not for kvm.jnlp
    h.request("viewer.jnlp(10.0.0.5@0@123@8443@17@4@abc)", 0x20);
    auto issued = credentials();
    ASSERT_EQ(5u, issued.size());
    EXPECT_NE(issued[1][4], issued[4][4]);
}

// Argument lists that must yield no document at all, and odd but accepted
// ones that must still yield a well-formed document holding the text given.
TEST_F(JNLPAgent, ArgumentListsOfTheWrongShape)
{
    for (const char* request :
         {"viewer.jnlp(10.0.0.5@0@123@8443@17@4)", "viewer.jnlp(10.0.0.5@0@@8443@17@4@abc)",
          "viewer.jnlp(10.0.0.5@0@123@x443@17@4@abc)", "crashCapture.jnlp()", "kvm.jnlp(@admin@pw)"}) {
        EXPECT_EQ("", h.request(request, 0x20)) << request;
    }
    const std::pair<std::string, std::string> cases[] = {
        {"bootCapture.jnlp(10.0.0.5@0@c@8443@17@4@a@b)", "<argument>sessionID=a@b</argument>"},
        {"kvm.jnlp(192.0.2.10@abcdefghijklmnopqrstuvwxyz0123456789@pw)",
         "<argument>user=abcdefghijklmnopqrstuvwxyz01234</argument>"},
        // the base URL has room for 255 characters.
        {"viewer.jnlp(" + std::string(600, 'a') + "@0@c@8443@17@4@s)",
         "<jnlp codebase=\"https://" + std::string(255, 'a') + "/*\" spec=\"1.0+\">"},
    };
    for (const auto& [request, part] : cases) {
        std::string reply = h.request(request, 0x20);
        EXPECT_TRUE(has(reply, part) && isWellFormedXml(reply)) << request << "\n" << reply;
    }
}

TEST_F(JNLPAgent, TokensFeatureSwitchAndFailures)
{
    std::string reply = h.request("get=genComputeTokens(17@4)", 0x08);
    auto issued = credentials();
    ASSERT_EQ(1u, issued.size());
    EXPECT_EQ("<root><tmpAuthName>" + issued[0][3] + "</tmpAuthName>\n<tmpAuthPwd>" + issued[0][4] +
                  "</tmpAuthPwd>\n<status>ok</status>\n</root>\n",
              reply);

    // request, fault of the session manager, feature on, the error message's beginning
    const std::tuple<const char*, const char*, bool, const char*> failures[] = {
        {"get=genComputeTokens(17)", nullptr, true, "Missing parameters."},
        {"get=genComputeTokens(17@4@5)", nullptr, true, "Failed to parse parameters."},
        {"get=genComputeTokens(17@4)", "5", true, "genComputeTokens: Internal error"},
        {"get=genComputeTokens(17@4)", nullptr, false, "Tokens cannot be generated"},
    };
    for (const auto& [request, fault, enabled, message] : failures) {
        if (fault != nullptr) {
            h.root().writeFile("/var/session/faults/get_temp_credentials", fault);
        }
        aim.setProperty("vkvm_bool_enabled", enabled, true);
        EXPECT_EQ(0u, h.request(request, 0x08).find(std::string("<root><status>error</status><errorMsg>") + message))
            << request;
    }
    // With the feature off no document either; with failing credentials a document with empty ones.
    EXPECT_EQ("", h.request("viewer.jnlp(10.0.0.5@0@c@8443@17@4@s)", 0x7f));
    aim.setProperty("vkvm_bool_enabled", true, true);
    std::string document = h.request("viewer.jnlp(10.0.0.5@0@c@8443@17@4@abc)", 0x20);
    EXPECT_TRUE(has(document, "<argument>user=</argument>\n   <argument>passwd=</argument>\n") &&
                isWellFormedXml(document));
}

}  // namespace
