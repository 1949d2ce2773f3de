// The request language end to end: reads and writes through the property
// map, privileges, the error replies, the agents' call order and the audit
// line, against the real server with the test handler library loaded.
#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <thread>
#include <tuple>

#include "AIMClient.h"
#include "GdsProcess.h"
#include "ReplyText.h"
#include "TestRoot.h"

namespace {

class Requests : public testing::Test {
protected:
    void SetUp() override
    {
        gds.setConfig("addHandler=test\n[test]\nlibFile=" + TestRoot::libDir() +
                      "/libtesthandler.so\nentryPoint=testhandler_init\n");
        ASSERT_TRUE(gds.start()) << gds.output();
    }

    std::string ask(const std::string& text, uint32_t privileges = 0x7f) { return gds.ask(text, privileges); }

    std::string aimText(const char* name)
    {
        AIMClient aim("test", 1);
        char buf[AIMClient::kMaxValue + 1] = "";
        return aim.initialize() && aim.getProperty(name, buf) ? buf : "<unset>";
    }

    TestRoot root{true};
    GdsProcess gds{root};
};

TEST_F(Requests, RequestLanguage)
{
    // request, privilege mask, reply, a property the request may write and its value afterwards
    const std::tuple<const char*, uint32_t, std::string, const char*, const char*> cases[] = {
        {"get=hostname,sshPort", 0x00, okReply("<hostname>sim-bmc</hostname>\n<sshPort>22</sshPort>\n"), "net_mac",
         "02:00:00:00:00:01"},
        // Unknown names answer nothing; a name twice answers twice.
        {"get=fooBar,mtu,mtu", 0x00, okReply("<mtu>1500</mtu>\n<mtu>1500</mtu>\n"), "pm_int_ssh_port", "22"},
        {"set=sshPort:2222", 0x02, okReply(""), "pm_int_ssh_port", "2222"},
        {"set=sshPort:2300", 0x00, okReply(""), "pm_int_ssh_port", "2300"},
        {"set=hostname:\"new host\"", 0x02, okReply(""), "net_hostname", "\"new host\""},
        {"set=macAddress:x", 0x02, errorReply("Insufficient privileges."), "net_mac", "02:00:00:00:00:01"},
        // The set part runs to the end of the text, so the get part comes first.
        {"get=mtu,set=mtu:9000", 0x7f, okReply("<mtu>9000</mtu>\n"), "pm_int_ssh_port", "2300"},
        {"set=mtu:1&get=mtu", 0x7f, errorReply("Bad request format"), "pm_int_ssh_port", "2300"},
    };
    for (const auto& [request, mask, reply, aimName, stored] : cases) {
        EXPECT_EQ(reply, ask(request, mask)) << request;
        EXPECT_EQ(stored, aimText(aimName)) << request;
    }
}

TEST_F(Requests, ExceptionsBecomeErrorReplies)
{
    const std::pair<const char*, std::string> cases[] = {
        {"processing", errorReply("processing failed: 42")},
        {"security", errorReply("not allowed")},
        {"format", errorReply("Bad request format")},
        {"cstring", errorReply("General error: plain text")},
        {"int", errorReply("Unexpected error")},
    };
    for (const auto& [kind, reply] : cases) {
        EXPECT_EQ(reply, ask(std::string("get=testThrow(") + kind + ")")) << kind;
    }
    // What an agent wrote before the exception stays ahead of the error.
    EXPECT_EQ("<root><set>testEcho=1</set>\n<status>error</status><errorMsg>not allowed</errorMsg></root>",
              ask("get=testThrow(security),set=testEcho:1"));
    // Another agent's failure in the same request also reads as the policy error.
    std::string reply = ask("set=testEcho:fail,userPolicyExpiry:5");
    EXPECT_NE(std::string::npos, reply.find("<errorMsg>User Password Expiry Policy configuration error.")) << reply;
}

TEST_F(Requests, AgentsAreCalledPhaseByPhase)
{
    ask("get=testEcho(1),testEcho(2),set=testEcho:a,userPolicyExpiry:1,testEcho:b");
    EXPECT_EQ(
        "TestEcho.initialize\nTestEcho.preProcessSet testEcho=b\nUserPolicy.initialize\n"
        "UserPolicy.preProcessSet userPolicyExpiry=1\nTestEcho.preProcessSet testEcho=b\nTestEcho.processSet\n"
        "UserPolicy.processSet\nTestEcho.postProcessSet\nUserPolicy.postProcessSet\nTestEcho.initialize\n"
        "TestEcho.preProcessGet testEcho (1)\nTestEcho.preProcessGet testEcho (2)\nTestEcho.processGet\n"
        "TestEcho.postProcessGet\n",
        root.readFile("/tmp/testhandler.calls"));
}

TEST_F(Requests, AuditLineWhileMarkerExists)
{
    ask("get=mtu");
    root.writeFile("/tmp/gdsprint_override", "");
    // The marker is looked up at most once a second.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    ask("get=hostname");
    ask("get=testThrow(format)");
    EXPECT_EQ(
        "GDS_DBG_ERROR: interface  => get=hostname and ret=0\n"
        "GDS_DBG_ERROR: interface  => get=testThrow(format) RequestFormatException\n",
        std::regex_replace(root.readFile("/var/log/gds.log"), std::regex(R"(\(\d+\)\[[^\]]*\] )"), ""));
}

}  // namespace
