// Canned data: what a get writes and in which order (the network block once
// and last), that every fragment is a well-formed piece of the reply, that
// the sample host agrees with the simulated controller's defaults (sets are
// checked end to end).
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

#include "AgentHarness.h"
#include "FakeDataAgent.h"
#include "XmlCheck.h"

namespace {

typedef std::vector<std::string> Names;

class Canned : public testing::Test {
protected:
    // One get phase as request processing drives it; the bytes written.
    std::string get(const Names& names, bool process = true)
    {
        EXPECT_EQ(1, agent->initialize());
        for (std::string name : names) {
            std::string extra;
            EXPECT_EQ(1, agent->preProcessGet(name, extra));
        }
        if (process) {
            EXPECT_EQ(1, agent->processGet());
        }
        EXPECT_EQ(1, agent->postProcessGet(h.connection()));
        return h.reply();
    }

    AgentHarness h;
    std::unique_ptr<FakeDataAgent> agent{new FakeDataAgent(h.dataHandler())};
};

const std::string kBlockStart = "\t <netConfig>\t\t<ifConfig>";
const std::string kBlockEnd = "\t\t</ifConfig>\t </netConfig>";

TEST_F(Canned, OrderAndNetworkBlock)
{
    const std::string pw = "   <pwState>0</pwState>";
    const std::string mac = "\t\t <macAddr>02:00:00:00:00:01</macAddr>";
    const std::string gw = "\t\t <v4Gateway>192.0.2.1</v4Gateway>";
    const std::vector<std::pair<Names, std::string>> cases = {
        {{"pwState", "sshPort"}, pw + "    <sshPort>22</sshPort>"},
        {{"sshPort", "pwState"}, "    <sshPort>22</sshPort>" + pw},
        // The block comes once, after every other fragment, its lines in block order.
        {{"v4Gateway", "pwState", "macAddr"}, pw + kBlockStart + mac + gw + kBlockEnd},
        {{"macAddr", "macAddr", "v4Gateway", "macAddr"}, kBlockStart + mac + gw + kBlockEnd},
        {{"v4NetMask", "v4IPAddr", "v4DHCPEnabled", "v4Enabled"},
         kBlockStart + "\t\t <v4Enabled>1</v4Enabled>\t\t <v4DHCPEnabled>0</v4DHCPEnabled>" +
             "\t\t <v4IPAddr>192.0.2.10</v4IPAddr>\t\t <v4NetMask>255.255.255.0</v4NetMask>" + kBlockEnd},
        // Names outside the table write nothing; a name twice writes twice.
        {{"fooBar", "pwState", "PWSTATE", "pwState"}, pw + pw},
        {{"fooBar"}, ""},
        {{}, ""},
    };
    for (const auto& [names, expected] : cases) {
        EXPECT_EQ(expected, get(names)) << testing::PrintToString(names);
    }
    // Requests do not leak into each other: the block of the previous one is gone.
    get({"macAddr"});
    EXPECT_EQ(pw, get({"pwState"}));
}

TEST_F(Canned, EveryFragmentIsWellFormed)
{
    const Names& names = FakeDataAgent::knownNames();
    EXPECT_EQ(names.size(), std::set<std::string>(names.begin(), names.end()).size());

    const std::set<std::string> network = {"macAddr",  "v4Enabled", "v4DHCPEnabled",
                                           "v4IPAddr", "v4NetMask", "v4Gateway"};
    const std::regex single("( {2,6})<([A-Za-z0-9]+)>([^<\n]*)</([A-Za-z0-9]+)>");
    // Each fragment in an envelope of its own; one document holds them all,
    // and any fragment that does not close what it opens breaks its envelope.
    std::string envelopes = "<replies>";
    for (const std::string& name : names) {
        EXPECT_TRUE(FakeDataAgent::isKnown(name)) << name;
        std::string out = get({name});
        ASSERT_FALSE(out.empty()) << name;
        envelopes += "<root>" + out + "<status>ok</status>\n</root>\n";
        std::smatch m;
        if (network.count(name) != 0) {
            EXPECT_EQ(0u, out.find(kBlockStart)) << name;
            EXPECT_NE(std::string::npos, out.find("\t\t <" + name + ">")) << name;
        } else if (std::regex_match(out, m, single)) {
            // A one-line fragment is an element named like the property.
            EXPECT_EQ(name, m[2].str());
            EXPECT_EQ(name, m[4].str());
        }
    }
    EXPECT_TRUE(isWellFormedXml(envelopes + "</replies>")) << envelopes;
    // All of them at once: one document, the network block once and last.
    std::string all = get(names);
    EXPECT_TRUE(isWellFormedXml("<root>" + all + "<status>ok</status>\n</root>\n"));
    EXPECT_EQ(all.find("<netConfig>"), all.rfind("<netConfig>"));
    EXPECT_EQ(all.size() - kBlockEnd.size(), all.rfind(kBlockEnd));
}

TEST_F(Canned, CertificateNamesShareOneFragment)
{
    const std::string cert = get({"certificate"});
    EXPECT_EQ(0u, cert.find("   <certificate>"));
    EXPECT_EQ(cert.size() - 17, cert.rfind("   </certificate>"));
    EXPECT_NE(std::string::npos, cert.find("Common Name (CN): sim-bmc\n"));
    EXPECT_GE(std::count(cert.begin(), cert.end(), '\n'), 10);
    for (const char* name : {"commonName", "orgName", "orgUnit", "locality", "stateName", "countryCode", "email"}) {
        EXPECT_EQ(cert, get({name})) << name;
    }
    EXPECT_TRUE(std::regex_match(get({"ipmiKey"}), std::regex("    <ipmiKey>[0-9a-fA-F]{40}</ipmiKey>")));
}

TEST_F(Canned, SampleHostMatchesTheSimulatedController)
{
    // Canned name, the default property behind the same fact, and how the canned reply shows it.
    std::map<std::string, std::string> defaults;
    std::istringstream in(h.root().readFile("/usr/local/etc/appweb/default.properties"));
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> f;
        std::stringstream ss(line);
        for (std::string part; std::getline(ss, part, ',');) {
            f.push_back(part);
        }
        if (f.size() >= 4) {
            defaults[f[1]] = f[3];
        }
    }
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"sysProductName", "product_name", "   <sysProductName>%s</sysProductName>"},
        {"hostname", "net_hostname", "   <hostname>%s</hostname>"},
        {"sshPort", "pm_int_ssh_port", "    <sshPort>%s</sshPort>"},
        {"macAddr", "net_mac", "\t\t <macAddr>%s</macAddr>"},
        {"v4IPAddr", "net_ipv4_address", "\t\t <v4IPAddr>%s</v4IPAddr>"},
    };
    for (const auto& [name, property, shape] : cases) {
        ASSERT_EQ(1u, defaults.count(property)) << property;
        std::string expected = std::regex_replace(shape, std::regex("%s"), defaults[property]);
        EXPECT_NE(std::string::npos, get({name}).find(expected)) << name;
    }
}

}  // namespace
