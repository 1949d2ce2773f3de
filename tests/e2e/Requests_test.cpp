// The request language end to end: reads and writes through the property
// map, privileges, the error replies, the agents' call order and the audit
// line, against the real server with the test handler library loaded.
#include <gtest/gtest.h>

#include "AIMClient.h"
#include "GDSClient.h"
#include "GdsProcess.h"
#include "TestRoot.h"
#include "XmlCheck.h"

namespace {

const char kGenericError[] =
    "<status>error</status>\n<errorMsg>The current operation failed. BRESK may be running any critical operation or "
    "in error state. Retry after sometime or reboot BRESK if necessary </errorMsg>\n</root>\n";

class Requests : public testing::Test {
protected:
    void SetUp() override
    {
        root = std::make_unique<TestRoot>(true);
        gds = std::make_unique<GdsProcess>(*root);
        gds->setConfig("addHandler=test\n[test]\nlibFile=" + TestRoot::libDir() +
                       "/libtesthandler.so\nentryPoint=testhandler_init\n");
        ASSERT_TRUE(gds->start()) << gds->output();
    }

    std::string ask(const std::string& text, uint32_t privileges = 0x7f, bool nxtGen = false)
    {
        GDSClient::Options o;
        o.layout = nxtGen ? GDSClient::Layout::kNxtGen : GDSClient::Layout::kLegacy;
        o.port = nxtGen ? gds->nxtGenPort() : gds->legacyPort();
        o.privileges = privileges;
        o.interface = "test-if";
        GDSClient client(o);
        client.connect();
        std::string reply = client.request(text).text;
        // Every reply with the envelope is a document of its own.
        EXPECT_TRUE(isWellFormedXml(reply)) << text << "\n" << reply;
        return reply;
    }

    std::string aimText(const char* name)
    {
        AIMClient aim("test", 1);
        aim.initialize();
        char buf[AIMClient::kMaxValue + 1] = "";
        return aim.getProperty(name, buf) ? buf : "<unset>";
    }

    std::unique_ptr<TestRoot> root;
    std::unique_ptr<GdsProcess> gds;
};

TEST_F(Requests, GetReadsMappedProperties)
{
    EXPECT_EQ("<root><hostname>sim-bmc</hostname>\n<sshPort>22</sshPort>\n<status>ok</status>\n</root>\n",
              ask("get=hostname,sshPort"));
    EXPECT_EQ(ask("get=hostname,sshPort"), ask("get=hostname,sshPort", 0x7f, true));
    // Unknown names answer nothing; a name twice answers twice.
    EXPECT_EQ("<root><mtu>1500</mtu>\n<mtu>1500</mtu>\n<status>ok</status>\n</root>\n", ask("get=fooBar,mtu,mtu"));
}

TEST_F(Requests, SetWritesThroughTheMapWithPrivilegeAndRange)
{
    struct Case {
        const char* request;
        uint32_t mask;
        std::string reply;
        const char* aimName;
        const char* stored;
    };
    std::vector<Case> cases = {
        {"set=sshPort:2222", 0x02, "<root><status>ok</status>\n</root>\n", "pm_int_ssh_port", "2222"},
        {"set=sshPort:2300", 0x00, "<root><status>ok</status>\n</root>\n", "pm_int_ssh_port", "2300"},
        {"set=sshPort:2400", 0x04, "<root><status>error</status><errorMsg>Insufficient privileges.</errorMsg></root>",
         "pm_int_ssh_port", "2300"},
        {"set=sshPort:70000", 0x02, std::string("<root>") + kGenericError, "pm_int_ssh_port", "2300"},
        {"set=sshPort:abc", 0x02, std::string("<root>") + kGenericError, "pm_int_ssh_port", "2300"},
        {"set=hostname:\"new host\"", 0x02, "<root><status>ok</status>\n</root>\n", "net_hostname", "\"new host\""},
        {"set=dhcpEnabled:5", 0x02, "<root><status>ok</status>\n</root>\n", "net_bool_dhcp", "1"},
        {"set=macAddress:x", 0x02, "<root><status>error</status><errorMsg>Insufficient privileges.</errorMsg></root>",
         "net_mac", "02:00:00:00:00:01"},
        {"set=sshPort:22,b", 0x02, "<root><status>error</status><errorMsg>Bad request format</errorMsg></root>",
         "pm_int_ssh_port", "2300"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.reply, ask(c.request, c.mask)) << c.request;
        EXPECT_EQ(c.stored, aimText(c.aimName)) << c.request;
    }
}

TEST_F(Requests, SetAndGetInOneRequest)
{
    // The set part runs to the end of the text, so the get part comes first;
    // the set parameters are get items nobody serves.
    EXPECT_EQ("<root><mtu>9000</mtu>\n<status>ok</status>\n</root>\n", ask("get=mtu,set=mtu:9000"));
    EXPECT_EQ("<root><status>error</status><errorMsg>Bad request format</errorMsg></root>",
              ask("set=mtu:9000&get=mtu"));
}

TEST_F(Requests, ExceptionsBecomeErrorReplies)
{
    struct Case {
        const char* kind;
        std::string reply;
    };
    std::vector<Case> cases = {
        {"processing", "<root><status>error</status><errorMsg>processing failed: 42</errorMsg></root>"},
        {"security", "<root><status>error</status><errorMsg>not allowed</errorMsg></root>"},
        {"format", "<root><status>error</status><errorMsg>Bad request format</errorMsg></root>"},
        {"cstring", "<root><status>error</status><errorMsg>General error: plain text</errorMsg></root>"},
        {"int", "<root><status>error</status><errorMsg>Unexpected error</errorMsg></root>"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.reply, ask(std::string("get=testThrow(") + c.kind + ")")) << c.kind;
    }
    // What an agent wrote before the exception stays ahead of the error.
    EXPECT_EQ("<root><set>testEcho=1</set>\n<status>error</status><errorMsg>not allowed</errorMsg></root>",
              ask("get=testThrow(security),set=testEcho:1"));
}

TEST_F(Requests, PasswordPolicyReply)
{
    EXPECT_EQ("<root><set>userPolicyExpiry=30</set>\n<status>ok</status>\n</root>\n", ask("set=userPolicyExpiry:30"));
    EXPECT_EQ(
        "<root><set>userPolicyExpiry=-1</set>\n<status>error</status>\n<errorMsg>User Password Expiry Policy "
        "configuration error. User Password Expiry Policy must meet the following requirements: 1. Valid password "
        "duration > Notification period. 2. Valid password duration > Grace period. </errorMsg>\n</root>\n",
        ask("set=userPolicyExpiry:-1"));
    // Another agent's failure in the same request still reads as the policy error.
    std::string both = ask("set=testEcho:fail,userPolicyExpiry:5");
    EXPECT_NE(std::string::npos, both.find("User Password Expiry Policy configuration error")) << both;
}

TEST_F(Requests, AgentsAreCalledPhaseByPhase)
{
    ask("get=testEcho(1),testEcho(2),set=testEcho:a,userPolicyExpiry:1,testEcho:b");
    EXPECT_EQ(
        "TestEcho.initialize\n"
        "TestEcho.preProcessSet testEcho=b\n"
        "UserPolicy.initialize\n"
        "UserPolicy.preProcessSet userPolicyExpiry=1\n"
        "TestEcho.preProcessSet testEcho=b\n"
        "TestEcho.processSet\n"
        "UserPolicy.processSet\n"
        "TestEcho.postProcessSet\n"
        "UserPolicy.postProcessSet\n"
        "TestEcho.initialize\n"
        "TestEcho.preProcessGet testEcho (1)\n"
        "TestEcho.preProcessGet testEcho (2)\n"
        "TestEcho.processGet\n"
        "TestEcho.postProcessGet\n",
        root->readFile("/tmp/testhandler.calls"));
}

TEST_F(Requests, LaunchDocumentsNeedTheConsolePrivilege)
{
    GDSClient::Options o;
    o.port = gds->legacyPort();
    o.privileges = 0x02;
    o.replyTimeoutMs = 500;
    GDSClient client(o);
    client.connect();
    EXPECT_THROW(client.request("viewer.jnlp(1,2)"), GDSClientError);
    // With the privilege the reply ends with a final packet.
    o.privileges = 0x20;
    GDSClient allowed(o);
    allowed.connect();
    GDSReply r = allowed.request("viewer.jnlp(1,2)");
    ASSERT_FALSE(r.packets.empty());
    EXPECT_EQ(1, r.packets.back().last);
}

TEST_F(Requests, AuditLineWhileMarkerExists)
{
    ask("get=mtu");
    root->writeFile("/tmp/gdsprint_override", "");
    ask("get=hostname");
    ask("get=testThrow(format)");
    std::string log = root->readFile("/var/log/gds.log");
    EXPECT_EQ(std::string::npos, log.find("get=mtu"));
    EXPECT_NE(std::string::npos, log.find("GDS_DBG_ERROR: interface  => get=hostname and ret=0\n")) << log;
    EXPECT_NE(std::string::npos,
              log.find("GDS_DBG_ERROR: interface  => get=testThrow(format) RequestFormatException\n"))
        << log;
}

}  // namespace
