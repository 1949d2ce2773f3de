// The canned handler library end to end: the simulated controller answers the
// pages without real agents, real agents and the property map keep their
// names whatever the load order, and the section's names list narrows or
// widens the canned set with its mistakes reported once.
#include <gtest/gtest.h>

#include <tuple>

#include "GdsProcess.h"
#include "ReplyText.h"
#include "TestRoot.h"

namespace {

std::string section(const std::string& name, const std::string& lib, const std::string& entry,
                    const std::string& extra = "")
{
    return "addHandler=" + name + "\n[" + name + "]\nlibFile=" + TestRoot::libDir() + "/" + lib +
           "\nentryPoint=" + entry + "\n" + extra;
}

std::string canned(const std::string& extra = "")
{
    return section("canned", "libcanned.so", "canned_init", extra);
}

// A server on a fresh simulated controller whose host name and SSH port
// differ from the canned samples, so the tests see who answered.
class CannedServer {
public:
    explicit CannedServer(const std::string* config = nullptr)
    {
        root.writeFile("/var/aim/props/net_hostname", "str\ne2e-host\n");
        root.writeFile("/var/aim/props/pm_int_ssh_port", "int\n2222\n");
        if (config != nullptr) {
            gds.setConfig(*config);
        }
        started = gds.start();
    }

    std::string ask(const std::string& text) { return gds.ask(text); }

    TestRoot root{true};
    GdsProcess gds{root};
    bool started = false;
};

const std::string kServiceSsh = "<sshPort>2222</sshPort>\n";
const std::string kMappedHost = "<hostname>e2e-host</hostname>\n";

TEST(CannedE2E, SimulatedControllerAnswersEveryPage)
{
    CannedServer s;  // the simulated controller's own configuration
    ASSERT_TRUE(s.started) << s.gds.output();
    std::string pages = s.ask("get=fans,temperatures,users,activeSessions,eventLogEntries,getPEF,certificate");
    for (const char* part : {"<name>FAN1_SPEED</name>", "<name>CPU1_TEMP</name>", "   <userList>", "   <sessionList>",
                             "   <eventLog>", "   <PEFglobal>1</PEFglobal>", "   <certificate>", "<status>ok"}) {
        EXPECT_NE(std::string::npos, pages.find(part)) << part << "\n" << pages;
    }
    // Real agents and the property map keep their names; sets to canned names change nothing.
    const std::pair<const char*, std::string> cases[] = {
        {"get=sshPort", okReply(kServiceSsh)},
        {"get=hostname", okReply(kMappedHost)},
        {"get=kvmPort", okReply("<kvmPort>2068</kvmPort>\n")},
        {"get=pwState,v4IPAddr", okReply("   <pwState>0</pwState>\t <netConfig>\t\t<ifConfig>\t\t "
                                         "<v4IPAddr>192.0.2.10</v4IPAddr>\t\t</ifConfig>\t </netConfig>")},
        {"set=pwState:1", okReply("")},
        {"get=pwState", okReply("   <pwState>0</pwState>")},
    };
    for (const auto& [request, reply] : cases) {
        EXPECT_EQ(reply, s.ask(request)) << request;
    }
    // What the simulated controller offers, for `make run`.
    std::string offers = s.root.readFile("/var/canned/agents");
    EXPECT_NE(std::string::npos, offers.find("Service\t18\tbuilt-in\n")) << offers;
    EXPECT_NE(std::string::npos, offers.find("JNLPAgent\t6\tbuilt-in\n")) << offers;
    EXPECT_NE(std::string::npos, offers.find("\tcanned data (libcanned.so)\n")) << offers;
    EXPECT_NE(std::string::npos, offers.find("DefaultPropertyAgent\t")) << offers;
}

TEST(CannedE2E, RealLibraryWinsWhateverTheLoadOrder)
{
    // Handler names sort before and after "canned", so the real library loads first, then last.
    for (const char* name : {"aaa", "zzz"}) {
        const std::string config = section(name, "librealsensors.so", "realsensors_init") + canned();
        CannedServer s(&config);
        ASSERT_TRUE(s.started) << s.gds.output();
        std::string reply = s.ask("get=fans,users,temperatures");
        EXPECT_EQ(0u, reply.find("<root><fans>real</fans>\n<users>real</users>\n   <powerOn></powerOn>"))
            << name << reply;
        EXPECT_EQ(std::string::npos, reply.find("FAN1_SPEED")) << name;
        EXPECT_NE(std::string::npos, reply.find("CPU1_TEMP")) << name;
        // 83 canned names less the built-in agents' 6, the property map's 4 and the library's 2.
        std::string offers = s.root.readFile("/var/canned/agents");
        EXPECT_NE(std::string::npos, offers.find("FakeDataAgent\t71\t")) << name << "\n" << offers;
        EXPECT_NE(std::string::npos, offers.find("RealSensors\t2\thandler library\n")) << name << "\n" << offers;
    }
}

TEST(CannedE2E, NamesListWidensAndReportsMistakesOnce)
{
    // Finer cases of the list are in the unit tests (CannedNames).
    const std::string config = canned("names=default,hostname,-users,bogus, -alsoBogus sshPort\n");
    CannedServer s(&config);
    ASSERT_TRUE(s.started) << s.gds.output();
    const std::pair<const char*, std::string> cases[] = {
        {"get=hostname", okReply("   <hostname>sim-bmc</hostname>")},  // taken from the property map
        {"get=users", okReply("")},
        {"get=sshPort", okReply(kServiceSsh)},  // never taken from a real agent
        {"get=pwState", okReply("   <pwState>0</pwState>")},
    };
    for (const auto& [request, reply] : cases) {
        EXPECT_EQ(reply, s.ask(request)) << request;
    }
    EXPECT_NE(std::string::npos, s.root.readFile("/var/canned/agents").find("FakeDataAgent\t73\t"));
    std::string out = s.gds.output();
    EXPECT_EQ(1u, occurrences(out, "\"bogus\" in section [canned] is not a canned name; ignored")) << out;
    EXPECT_EQ(1u, occurrences(out, "\"-alsoBogus\" in section [canned] is not a canned name; ignored")) << out;
    EXPECT_EQ(1u, occurrences(out, "\"sshPort\" in section [canned] is served by Service; left to it")) << out;
}

}  // namespace
