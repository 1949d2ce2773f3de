// The KVM launch documents (golden files byte for byte, well-formed XML for
// every input), the refusals of bad argument lists, the token reply and the
// session manager's credentials in them, driven through request processing.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "AIMClient.h"
#include "AgentHarness.h"
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
    for (const auto& [request, mask, golden] : cases) {
        std::string document = h.request(request, mask);
        std::ifstream in(TestRoot::simRoot() + "/../../tests/golden/" + golden, std::ios::binary);
        std::string expected((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
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
        EXPECT_EQ(expected, document) << golden;
        EXPECT_TRUE(isWellFormedXml(document)) << golden;
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
          "viewer.jnlp(@0@123@8443@17@4@abc)", "viewer.jnlp(10.0.0.5@0@123@x443@17@4@abc)",
          "viewer.jnlp(10.0.0.5@0@123@443@s17@4@abc)", "viewer.jnlp(10.0.0.5@v6@123@443@17@4@abc)",
          "bootCapture.jnlp(10.0.0.5)", "crashCapture.jnlp()", "kvm.jnlp(192.0.2.10@admin)", "kvm.jnlp(192.0.2.10@@pw)",
          "kvm.jnlp(@admin@pw)"}) {
        EXPECT_EQ("", h.request(request, 0x20)) << request;
    }
    const std::string longAddress(600, 'a');
    const std::pair<std::string, std::string> cases[] = {
        {"bootCapture.jnlp(10.0.0.5@0@c@8443@17@4@a@b)", "<argument>sessionID=a@b</argument>"},
        {"viewer.jnlp", "<argument>ip=viewer.jnlp</argument>"},  // the whole text is the address
        {"kvm.jnlp", "<argument>ip=</argument>"},
        {"kvm.jnlp(192.0.2.10@admin@)", "<argument>user=admin</argument>\n   <argument>passwd=</argument>"},
        {"kvm.jnlp(192.0.2.10@abcdefghijklmnopqrstuvwxyz0123456789@pw)",
         "<argument>user=abcdefghijklmnopqrstuvwxyz01234</argument>"},
        {"kvm.jnlp(192.0.2.10@u@0123456789012345678901234567890123456789)",
         "<argument>passwd=0123456789012345678901234567890</argument>"},
        {"kvm.jnlp(a\"b<c>&d@u<@p&\"x)", "<argument>passwd=p&amp;&quot;x</argument>"},
        {"viewer.jnlp(x'<y@0@c@8443@17@4@</argument>)", "<argument>ip=x&apos;&lt;y</argument>"},
        // host-port and base URL have room for 255 characters.
        {"viewer.jnlp(" + longAddress + "@0@c@8443@17@4@s)",
         "<jnlp codebase=\"https://" + std::string(255, 'a') + "/*\" spec=\"1.0+\">"},
        {"viewer.jnlp(" + longAddress + "@0@c@8443@17@4@s)",
         "<argument>helpurl=https://" + std::string(247, 'a') + "help/"},
    };
    for (const auto& [request, part] : cases) {
        std::string reply = h.request(request, 0x20);
        EXPECT_TRUE(has(reply, part) && isWellFormedXml(reply)) << request << "\n" << reply;
    }
}

TEST_F(JNLPAgent, FeatureSwitchAndFailures)
{
    aim.setProperty("vkvm_bool_enabled", false, true);
    EXPECT_EQ("", h.request("viewer.jnlp(10.0.0.5@0@c@8443@17@4@s)", 0x7f));
    EXPECT_EQ("", h.request("bootCapture.jnlp(10.0.0.5@0@c@8443@17@4@s)", 0x7f));
    EXPECT_TRUE(has(h.request("kvm.jnlp(10.0.0.5@u@p)", 0x00), "<argument>user=u</argument>"));
    aim.setProperty("vkvm_bool_enabled", true, true);

    // No recording, no credentials: still a well-formed document.
    system(("rm -rf '" + h.root().path("/tmp/crashcapture") + "'").c_str());
    std::string document = h.request("crashCapture.jnlp(10.0.0.5@0@c@80@17@4@s)", 0x20);
    EXPECT_TRUE(has(document, "dvcurl=http://10.0.0.5:80/crashcaptures/</argument>") && isWellFormedXml(document));
    h.root().writeFile("/var/session/faults/get_temp_credentials", "11\n");
    document = h.request("viewer.jnlp(10.0.0.5@0@c@8443@17@4@abc)", 0x20);
    EXPECT_TRUE(has(document, "<argument>user=</argument>\n   <argument>passwd=</argument>\n") &&
                isWellFormedXml(document));
}

TEST_F(JNLPAgent, TemporaryTokens)
{
    std::string reply = h.request("get=genComputeTokens(17@4)", 0x08);
    auto issued = credentials();
    ASSERT_EQ(1u, issued.size());
    EXPECT_EQ("<root><tmpAuthName>" + issued[0][3] + "</tmpAuthName>\n<tmpAuthPwd>" + issued[0][4] +
                  "</tmpAuthPwd>\n<status>ok</status>\n</root>\n",
              reply);

    auto error = [](const std::string& message) {
        return "<root><status>error</status><errorMsg>" + message + "</errorMsg></root>";
    };
    for (const char* request : {"get=genComputeTokens(17)", "get=genComputeTokens(@4)", "get=genComputeTokens"}) {
        EXPECT_EQ(error("Missing parameters. Internal error processing genComputeTokens request."),
                  h.request(request, 0x08));
    }
    for (const char* request :
         {"get=genComputeTokens(x17@4)", "get=genComputeTokens(17@)", "get=genComputeTokens(17@4@5)"}) {
        EXPECT_EQ(error("Failed to parse parameters. Internal error processing genComputeTokens request."),
                  h.request(request, 0x08));
    }
    EXPECT_EQ(error("Insufficient privileges."), h.request("get=genComputeTokens(17@4)", 0x77));
    h.root().writeFile("/var/session/faults/get_temp_credentials", "5");
    EXPECT_EQ(error("genComputeTokens: Internal error while generating temp auth tokens for vKVM Session."),
              h.request("get=genComputeTokens(17@4)", 0x08));
    aim.setProperty("vkvm_bool_enabled", false, true);
    EXPECT_EQ(error("Tokens cannot be generated as vKVM feature is disabled in BRESK."),
              h.request("get=genComputeTokens(17@4)", 0x08));
}

}  // namespace
