// The KVM launch documents (golden files byte for byte, well-formed XML for
// every input), the refusals of bad argument lists, the token reply and the
// session manager's credentials, driven through request processing.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "AIMClient.h"
#include "AgentHarness.h"
#include "sm_session.h"

namespace {

class JNLPAgent : public testing::Test {
protected:
    void SetUp() override
    {
        h.server().setDefaultProperties();
        aim.initialize();
        aim.setProperty("webHTTPSPort", 8443, true);
        aim.setProperty("rp_int_apcp_port", 5900, true);
        for (const char* dir : {"/tmp/bootcapture", "/tmp/crashcapture"}) {
            system(("rm -rf '" + h.root().path(dir) + "'").c_str());
        }
        h.root().writeFile("/tmp/bootcapture/boot_0001.dvc", "b");
        h.root().writeFile("/tmp/crashcapture/crash_0001.dvc", "c");
    }

    // The last credentials the session manager issued; the number issued.
    int lastCredentials(std::string& user, std::string& password, std::string* sessionAndPriv = nullptr)
    {
        std::istringstream lines(h.root().readFile("/var/session/credentials"));
        std::string line, last, time, kind, session, priv;
        int count = 0;
        for (; std::getline(lines, line); ++count) {
            last = line;
        }
        std::istringstream(last) >> time >> kind >> session >> priv >> user >> password;
        if (sessionAndPriv != nullptr) {
            *sessionAndPriv = kind + " " + session + " " + priv;
        }
        return count;
    }

    int xmllint(const std::string& document)
    {
        std::string path = h.root().writeFile("/doc.jnlp", document);
        return system(("xmllint --noout '" + path + "' 2>/dev/null").c_str());
    }

    AgentHarness h;
    AIMClient aim{"test", 1};
};

TEST_F(JNLPAgent, DocumentsMatchTheGoldenFiles)
{
    const std::pair<const char*, int> requests[] = {
        {"viewer.jnlp(10.0.0.5@0@123@8443@17@4@abc)", 0x7f},
        {"viewer.jnlp(fe80::1@1@123@8443@17@4@abc)", 0x20},
        {"kvm.jnlp(192.0.2.10@admin@se@cret)", 0x00},
        {"bootCapture.jnlp(10.0.0.5@0@123@80@17@4@sess-42)", 0x60},
        {"crashCapture.jnlp(fe80::1@1@123@8443@17@4@sess-42)", 0x20},
    };
    const char* goldens[] = {"viewer_ipv4.jnlp", "viewer_ipv6.jnlp", "kvm.jnlp", "bootCapture_ipv4.jnlp",
                             "crashCapture_ipv6.jnlp"};
    for (int i = 0; i < 5; ++i) {
        std::string document = h.request(requests[i].first, requests[i].second);
        std::ifstream in(TestRoot::simRoot() + "/../../tests/golden/" + goldens[i], std::ios::binary);
        std::stringstream golden;
        golden << in.rdbuf();
        std::string expected = golden.str(), user, password, who;
        if (lastCredentials(user, password, &who) == i + 1 && i < 2) {
            EXPECT_EQ("90 17 4", who);
            expected.replace(expected.find("{{USER}}"), 8, user);
            expected.replace(expected.find("{{PASSWORD}}"), 12, password);
        }
        EXPECT_EQ(expected, document) << goldens[i];
        EXPECT_EQ(0, xmllint(document)) << goldens[i];
    }
    // Only the live console got credentials, each time fresh ones.
    std::string user, password;
    EXPECT_EQ(2, lastCredentials(user, password));
    h.request("viewer.jnlp(10.0.0.5@0@123@8443@17@4@abc)", 0x20);
    std::string user2, password2;
    EXPECT_EQ(3, lastCredentials(user2, password2));
    EXPECT_NE(password, password2);
}

// Argument lists that must yield no document at all, and odd but accepted
// ones that must still yield a well-formed document holding `expect`.
TEST_F(JNLPAgent, ArgumentListsOfTheWrongShape)
{
    const std::string longAddress(600, 'a');
    const std::pair<std::string, std::string> cases[] = {
        {"viewer.jnlp(10.0.0.5@0@123@8443@17@4)", ""},  // six fields
        {"viewer.jnlp(10.0.0.5@0@@8443@17@4@abc)", ""},
        {"viewer.jnlp(@0@123@8443@17@4@abc)", ""},
        {"viewer.jnlp(10.0.0.5@0@123@x443@17@4@abc)", ""},
        {"viewer.jnlp(10.0.0.5@0@123@443@s17@4@abc)", ""},
        {"viewer.jnlp(10.0.0.5@v6@123@443@17@4@abc)", ""},
        {"bootCapture.jnlp(10.0.0.5)", ""},
        {"crashCapture.jnlp()", ""},
        {"kvm.jnlp(192.0.2.10)", ""},
        {"kvm.jnlp(192.0.2.10@admin)", ""},
        {"kvm.jnlp(192.0.2.10@@pw)", ""},
        {"kvm.jnlp(@admin@pw)", ""},
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
    for (const auto& c : cases) {
        std::string reply = h.request(c.first, 0x20);
        if (c.second.empty()) {
            EXPECT_EQ("", reply) << c.first;
        } else {
            EXPECT_NE(std::string::npos, reply.find(c.second)) << c.first << "\n" << reply;
            EXPECT_EQ(0, xmllint(reply)) << c.first;
        }
    }
}

TEST_F(JNLPAgent, FeatureSwitchPortsAndFailures)
{
    aim.setProperty("vkvm_bool_enabled", false, true);
    EXPECT_EQ("", h.request("viewer.jnlp(10.0.0.5@0@c@8443@17@4@s)", 0x7f));
    EXPECT_EQ("", h.request("bootCapture.jnlp(10.0.0.5@0@c@8443@17@4@s)", 0x7f));
    EXPECT_NE(std::string::npos, h.request("kvm.jnlp(10.0.0.5@u@p)", 0x00).find("<argument>user=u</argument>"));
    aim.setProperty("vkvm_bool_enabled", true, true);

    // HTTPS port: "webHTTPSPort", else "gui_int_https_port", else 443;
    // console port: "rp_int_apcp_port", else 2068.
    h.root().writeFile("/var/aim/faults/get.webHTTPSPort", "");
    aim.setProperty("gui_int_https_port", 9443, true);
    std::string document = h.request("bootCapture.jnlp(10.0.0.5@0@c@9443@17@4@s)", 0x20);
    EXPECT_NE(std::string::npos, document.find("dvcurl=https://10.0.0.5:9443/bootcaptures/boot_0001.dvc<"));
    h.root().writeFile("/var/aim/faults/get.gui_int_https_port", "");
    h.root().writeFile("/var/aim/faults/get.rp_int_apcp_port", "");
    document = h.request("viewer.jnlp(10.0.0.5@0@c@443@17@4@s)", 0x20);
    EXPECT_NE(std::string::npos, document.find("codebase=\"https://10.0.0.5:443/*\""));
    EXPECT_NE(std::string::npos, document.find("<argument>kmport=2068</argument>"));

    // No recording, no credentials: still a well-formed document.
    system(("rm -rf '" + h.root().path("/tmp/crashcapture") + "'").c_str());
    document = h.request("crashCapture.jnlp(10.0.0.5@0@c@80@17@4@s)", 0x20);
    EXPECT_NE(std::string::npos, document.find("dvcurl=http://10.0.0.5:80/crashcaptures/</argument>"));
    EXPECT_EQ(0, xmllint(document));
    h.root().writeFile("/var/session/faults/get_temp_credentials", "11\n");
    document = h.request("viewer.jnlp(10.0.0.5@0@c@8443@17@4@abc)", 0x20);
    EXPECT_NE(std::string::npos, document.find("<argument>user=</argument>\n   <argument>passwd=</argument>\n"));
    EXPECT_EQ(0, xmllint(document));
}

TEST_F(JNLPAgent, TemporaryTokens)
{
    std::string reply = h.request("get=genComputeTokens(17@4)", 0x08);
    std::string user, password, who;
    lastCredentials(user, password, &who);
    EXPECT_EQ("90 17 4", who);
    EXPECT_EQ("<root><tmpAuthName>" + user + "</tmpAuthName>\n<tmpAuthPwd>" + password +
                  "</tmpAuthPwd>\n<status>ok</status>\n</root>\n",
              reply);

    const std::string missing = "Missing parameters. Internal error processing genComputeTokens request.";
    const std::string unparsable = "Failed to parse parameters. Internal error processing genComputeTokens request.";
    const std::pair<const char*, std::string> errors[] = {
        {"get=genComputeTokens(17)", missing},     {"get=genComputeTokens(@4)", missing},
        {"get=genComputeTokens", missing},         {"get=genComputeTokens(x17@4)", unparsable},
        {"get=genComputeTokens(17@)", unparsable}, {"get=genComputeTokens(17@4@5)", unparsable},
    };
    for (const auto& e : errors) {
        EXPECT_EQ("<root><status>error</status><errorMsg>" + e.second + "</errorMsg></root>", h.request(e.first, 0x08))
            << e.first;
    }
    EXPECT_EQ("<root><status>error</status><errorMsg>Insufficient privileges.</errorMsg></root>",
              h.request("get=genComputeTokens(17@4)", 0x77));
    h.root().writeFile("/var/session/faults/get_temp_credentials", "5");
    EXPECT_EQ(
        "<root><status>error</status><errorMsg>genComputeTokens: Internal error while generating temp auth "
        "tokens for vKVM Session.</errorMsg></root>",
        h.request("get=genComputeTokens(17@4)", 0x08));
    aim.setProperty("vkvm_bool_enabled", false, true);
    EXPECT_EQ(
        "<root><status>error</status><errorMsg>Tokens cannot be generated as vKVM feature is disabled in "
        "BRESK.</errorMsg></root>",
        h.request("get=genComputeTokens(17@4)", 0x08));
}

TEST(SessionManager, CredentialsAreRandomRecordedAndFailOnDemand)
{
    TestRoot root;
    char user[SM_SESSION_CREDENTIAL_SIZE];
    char password[SM_SESSION_CREDENTIAL_SIZE];
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(0, sm_session_get_temp_credentials(90, user, password, i, 4));
        EXPECT_EQ(24u, strlen(password));
        EXPECT_TRUE(seen.insert(password).second);
    }
    std::string record = root.readFile("/var/session/credentials");
    EXPECT_EQ(50, std::count(record.begin(), record.end(), '\n'));
    EXPECT_NE(std::string::npos, record.find(" 90 49 4 " + std::string(user) + " " + password + "\n"));

    strcpy(user, "unchanged");
    root.writeFile("/var/session/faults/get_temp_credentials", "110\n");
    EXPECT_EQ(110, sm_session_get_temp_credentials(90, user, password, 1, 4));
    root.writeFile("/var/session/faults/get_temp_credentials", "");
    EXPECT_NE(0, sm_session_get_temp_credentials(90, user, password, 1, 4));
    EXPECT_STREQ("unchanged", user);
}

}  // namespace
