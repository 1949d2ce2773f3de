// The adapter agent driven directly on the simulated cards: argument forms
// and their messages, the checks of request text bound for command lines,
// the listing parser and the conversion of tool output, card readiness, the
// card cache's refresh on a network-mode change, and concurrent resolution.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "AIMClient.h"
#include "AdapterAgent.h"
#include "AgentHarness.h"
#include "ProcessingException.h"
#include "ReplyText.h"
#include "XmlCheck.h"

namespace {

class Agent : public AdapterAgent {
public:
    using AdapterAgent::AdapterAgent;
    using AdapterAgent::m_cardIndex;
    using AdapterAgent::m_cardMac;
    using AdapterAgent::m_childIndex;
    using AdapterAgent::m_detailSelector;
    using AdapterAgent::m_vnicName;
};

class AdapterAgentTest : public testing::Test {
protected:
    void SetUp() override
    {
        AdapterAgent::clearCardsCache();
        // "sender", the property tool behind the host power state
        const char* path = getenv("PATH");
        setenv("PATH", (h.root().path("/usr/local/bin") + ":" + (path != nullptr ? path : "/usr/bin:/bin")).c_str(), 1);
    }

    // The message of the ProcessingException a get throws, or "" when none.
    std::string getError(const std::string& name, const std::string& extra)
    {
        agent.initialize();
        std::string n = name, e = extra;
        try {
            agent.preProcessGet(n, e);
            agent.postProcessGet(h.connection());
        } catch (const ProcessingException& ex) {
            return ex.getMessage();
        }
        return "";
    }
    std::string converted(const std::string& output, bool& flag, std::string& text)
    {
        FILE* f = fmemopen(const_cast<char*>(output.data()), output.size(), "r");
        agent.xmlizeAdapter(f, h.socket(), "T", flag, text, "No Storage Data");
        fclose(f);
        return h.reply();
    }
    std::string locateError(const char* method, int slot)
    {
        try {
            std::string mac, vif;
            agent.locateMPAddress(method, slot, mac, vif);
        } catch (const ProcessingException& e) {
            return e.getMessage();
        }
        return "";
    }
    // How often the card listing ran.
    int listings()
    {
        return static_cast<int>(occurrences("\n" + h.root().readFile("/var/cards/commands.log"), "\ncardutil -L\n"));
    }
    void setNetMode(int mode, int slot)
    {
        std::string record(992, '\0');
        record[128] = static_cast<char>(mode);
        record[129] = static_cast<char>(slot);
        h.root().writeFile("/var/aim/functions/netGetCurrentIfConfig", "ok\n" + record);
    }

    AgentHarness h;
    Agent agent{h.dataHandler()};
};

TEST_F(AdapterAgentTest, ArgumentFormsAndMessages)
{
    struct Case {
        const char* name;
        const char* extra;
        const char* message;
    };
    const Case cases[] = {
        {"enic", "", "card index required for get=enic "},
        {"fnic", "(2)", "card index required for get=fnic "},
        {"adapterFW", "[x]", "invalid index specified for get=adapterFW[[x]] "},
        {"adapterFW", "[-1]", "invalid index specified for get=adapterFW[[-1]] "},
        {"adapterFW", "[99999999999]", "invalid index specified for get=adapterFW[[99999999999]] "},
        {"adapterFW", "[]", "invalid index specified for get=adapterFW[[]] "},
        {"adapterFW", "[7]", "7 not a managed card for method adapterFW. 2 cards are discovered"},
        {"enic", "[0 eth0]", "0 not a managed card for method enic. 2 cards are discovered"},
        {"enic", "[99999999999 eth0]", "0 not a managed card for method enic. 2 cards are discovered"},
        {"adapterChild", "[1 PortProfiles]", " missing uplid PortProfiles for get=adapterChild "},
        {"adapterChild", "[1 Links 0]", " invalid childClass Links for get=adapterChild "},
        {"adapterChild", "[1]", " invalid params for get=adapterChild[slot child_class]"},
        {"fnicChild", "[1 BootTable]", " invalid params for get=fnicChild[slot child_class vnic_name]"},
        {"fnicChild", "[1 Boot fc0]", " invalid childClass Boot for get=fnicChild "},
        {"channelStatus", "[1 2 eth0 5]", " invalid childIndex 2 for get=channelStatus "},
        {"channelStatus", "[1 0 eth0]", " invalid params for get=channelStatus[slot uplid vnicname channel-number]"},
        {"portProfileExists", "[1 3 prof1]", " invalid childIndex 3 for get=portProfileExists "},
        {"portProfileExists", "", " invalid params for get=portProfileExists[slot uplid profilename]"},
        {"bootableVnicCount", "[]", " invalid params for get=bootableVnicCount[slot]"},
        {"ptsEnicCount", "", " invalid params for get=ptsEnicCount[slot]"},
        {"usnicConfig", "[1]", "GDS usnicConfig command missing eth vNIC name input parameter."},
        {"adapter", "[2 2]", ""},
        {"adapterFW", "", ""},
        {"nextOrder", "", ""},
        {"unknownThing", "[x]", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.message, getError(c.name, c.extra)) << c.name << c.extra;
        h.reply();
    }
}

TEST_F(AdapterAgentTest, ParsedFields)
{
    std::string name = "adapter", extra = "[2 5]";
    agent.initialize();
    agent.preProcessGet(name, extra);
    EXPECT_EQ("1", agent.m_detailSelector);  // above 3 asks for the details
    EXPECT_EQ("70:df:2f:86:a2:20", agent.m_cardMac);
    name = "channelStatus", extra = "[1  0\teth1 6]";
    agent.initialize();
    agent.preProcessGet(name, extra);
    EXPECT_EQ(1, agent.m_cardIndex);
    EXPECT_EQ("eth1", agent.m_vnicName);
    EXPECT_EQ("0", agent.m_childIndex);
}

// Request text bound for a command line is refused before anything runs:
// not even the card listing.
TEST_F(AdapterAgentTest, HostileTextRunsNothing)
{
    const std::string canary = h.root().path("/tmp/canary");
    // the character rules themselves are the safe-execution tests'; here:
    // every form checks, a leading dash and an over-long text included
    const std::string hostile[] = {"a;touch " + canary, "-rf", std::string(4096, 'a')};
    // name, then the argument with % where the text goes
    // clang-format off
    const char* forms[] = {
        "enic [2 %]", "iscsiBoot [2 %]", "usnicConfig [2 %]", "ptsEnic [2 %]", "fnic [2 %]",
        "fnicChild [2 BootTable %]", "adapterChild [2 Uplink %]", "portProfileExists [2 0 %]",
        "channelStatus [2 0 % 5]", "channelStatus [2 0 eth0 %]"};
    // clang-format on
    for (const std::string& text : hostile) {
        for (const std::string form : forms) {
            std::string name = form.substr(0, form.find(' ')), extra = form.substr(form.find(' ') + 1);
            extra.replace(extra.find('%'), 1, text);
            EXPECT_EQ("Invalid characters in an argument of " + name, getError(name, extra)) << extra;
        }
    }
    EXPECT_FALSE(h.root().exists("/tmp/canary"));
    EXPECT_FALSE(h.root().exists("/var/cards/commands.log"));
}

TEST_F(AdapterAgentTest, CardListingParser)
{
    struct Case {
        std::string listing;
        bool details;
        std::vector<std::string> cards;  // "slot mac interface type"
    };
    const std::string longMac = "quaile-mac: " + std::string(300, 'm') + "\n";
    const Case cases[] = {
        {"---\nslot-number: 2\nvorn-mac: m2\nvirtual-eth-if: v2\ncard-type: T\n...\n", false, {"2 m2 v2 T"}},
        // fields before the first "---" and after "..." are ignored
        {"slot-number: 9\n---\nslot-number: 1\ntiskel-mac: m\nvirtual-eth-if: v\ncard-type: T\n...\n---\n"
         "slot-number: 3\ndremm-mac: m\nvirtual-eth-if: v\ncard-type: T\n",
         false,
         {"1 m v T"}},
        // an incomplete record gives nothing; details need all seven values
        {"---\nslot-number: 1\nvorn-mac: m\ncard-type: T\n---\nslot-number: 2\nvorn-mac: m\nvirtual-eth-if: v\n"
         "card-type: T\nhw-revision: 1\n...\n",
         true,
         {}},
        {"---\r\nslot-number: 4\r\nvorn-mac: m\r\nvirtual-eth-if: v\r\ncard-type: T\r\n", false, {"4 m v T"}},
        // a line longer than the buffer is ignored
        {"---\nslot-number: 5\n" + longMac + "virtual-eth-if: v\ncard-type: T\n...\n", false, {}},
        {"---\nslot-number:\nvorn-mac:x\n", false, {}},
    };
    for (const Case& c : cases) {
        std::string text = c.listing;
        FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
        std::vector<std::string> got;
        AdapterAgent::parseCardListing(f, c.details, [&](const AdapterAgent::CardRecord& r) {
            got.push_back(r.slot + " " + r.mac + " " + r.interface + " " + r.type);
        });
        fclose(f);
        EXPECT_EQ(c.cards, got) << c.listing;
    }
}

TEST_F(AdapterAgentTest, ToolOutputToElements)
{
    struct Case {
        std::string output;
        std::string xml;
        std::string error;
    };
    const Case cases[] = {
        {"---\na: 1\n---\nb: 2\n...\n", "<T><a>1</a></T><T><b>2</b></T>", ""},
        {"---\nname: x\nrunning-kor-cfg: begin\n  vlan: 3\nStartup-Kor-Cfg: end\nmtu: 9\n...\n",
         "<T><name>x</name><mtu>9</mtu></T>", ""},
        {"error: No Storage Data\n", "", ""},
        {"error: Card not present\n", "<error>Card not present</error>", "Card not present"},
        {"error: x\n", "<error>x</error>", ""},  // too short to count as an error
        {"   key: a<b&c>\nbad key: 1\n<x>: 2\nnocolon\n", "<key>a&lt;b&amp;c&gt;</key>", ""},
        {"empty:\n...\n", "<empty></empty>", ""},
        {"---\na: 1\n", "<T><a>1</a></T>", ""},  // closed though the tool stopped early
        {"k: " + std::string(400, 'x') + ": y\nz: 1\n", "<k>" + std::string(352, 'x') + "</k><z>1</z>", ""},
        {std::string("k: a\x01") + "b\n", "<k>ab</k>", ""},
    };
    for (const Case& c : cases) {
        bool flag = true;
        std::string text = "stale";
        std::string xml = converted(c.output, flag, text);
        EXPECT_EQ(c.xml, xml) << c.output;
        EXPECT_EQ(c.error, text) << c.output;
        EXPECT_EQ(!c.error.empty(), flag) << c.output;
        EXPECT_TRUE(isWellFormedXml("<r>" + xml + "</r>")) << xml;
    }
}

TEST_F(AdapterAgentTest, CardReadiness)
{
    AIMClient& aim = h.server().getAIMClient();
    struct Case {
        const char* edit;  // a line put first in the card file (the first of a key wins)
        const char* power;
        bool ready;
    };
    const Case cases[] = {
        {"", "1", true},           {"actions-blocked: yes", "1", false}, {"temperature: 99", "1", false},
        {"active: no", "1", true}, {"active: no", "0", false},           {"", "0", true},
    };
    const std::string card = h.root().readFile("/var/cards/2/card");
    for (const Case& c : cases) {
        std::string text = std::string(c.edit) + "\n" + card;
        h.root().writeFile("/var/cards/2/card", text);
        aim.setProperty("pwState", c.power, true);
        EXPECT_EQ(c.ready, agent.canTalkToCard(2)) << c.edit << " power " << c.power;
    }
    EXPECT_FALSE(agent.canTalkToCard(7));
    EXPECT_FALSE(agent.canTalkToCard(-1));
    // a card that cannot be addressed is refused with the readiness message
    h.root().writeFile("/var/cards/2/card", "actions-blocked: yes\n" + card);
    EXPECT_EQ("cannot communicate with card (actions are not enabled) 2 (fwstatus)", locateError("fwstatus", 2));
}

TEST_F(AdapterAgentTest, CacheRefreshOnNetworkModeChange)
{
    std::string mac, vif;
    agent.initialize();
    agent.locateMPAddress("t", 1, mac, vif);
    agent.locateMPAddress("t", 1, mac, vif);  // settles the remembered mode
    int before = listings();
    agent.locateMPAddress("t", 2, mac, vif);
    EXPECT_EQ(before, listings()) << "cached";
    struct Step {
        int mode, slot;
        int newListings;
    };
    const Step steps[] = {{2, 0, 1}, {2, 0, 0}, {2, 3, 1}, {2, 3, 0}, {0, 0, 1}};
    for (const Step& s : steps) {
        setNetMode(s.mode, s.slot);
        int n = listings();
        agent.locateMPAddress("t", 2, mac, vif);
        EXPECT_EQ(s.newListings, listings() - n) << s.mode << "/" << s.slot;
    }
    // a card added to the model is found after a refresh
    h.root().writeFile("/var/cards/4/card", h.root().readFile("/var/cards/1/card") + "virtual-eth-if: vmp4\n");
    EXPECT_EQ("4 not a managed card for method t. 2 cards are discovered", locateError("t", 4));
    AdapterAgent::clearCardsCache();
    EXPECT_EQ(0u, AdapterAgent::cachedCardCount());
    agent.locateMPAddress("t", 1, mac, vif);
    EXPECT_EQ(3u, AdapterAgent::cachedCardCount());
}

// Two agents resolve cards while a third keeps forcing a refresh: every
// resolution finds its card (run it in the sanitizer build for races).
TEST_F(AdapterAgentTest, ConcurrentResolution)
{
    Agent a{h.dataHandler()}, b{h.dataHandler()}, c{h.dataHandler()};
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    auto resolver = [&](Agent& agent, int slot) {
        for (int i = 0; i < 15; ++i) {
            try {
                std::string mac, vif;
                agent.locateMPAddress("t", slot, mac, vif);
                if (vif != "vmp" + std::to_string(slot)) {
                    ++failures;
                }
            } catch (const ProcessingException&) {
                ++failures;
            }
        }
    };
    std::thread refresher([&] {
        while (!stop) {
            AdapterAgent::clearCardsCache();
            c.loadCards();
        }
    });
    std::thread first(resolver, std::ref(a), 1), second(resolver, std::ref(b), 2);
    first.join();
    second.join();
    stop = true;
    refresher.join();
    EXPECT_EQ(0, failures.load());
}

TEST(AdapterAgentHelpers, TrimAndAddresses)
{
    const std::pair<std::string, std::string> trims[] = {
        {" \t\"a b\" ", "a b"}, {"\"\"", ""}, {"", ""}, {"x", "x"}, {"\t x\"y \"", "x\"y"}};
    for (auto [in, out] : trims) {
        AdapterAgent::trim(in);
        EXPECT_EQ(out, in);
    }
    const std::pair<const char*, bool> v6[] = {
        {"fe80::1", true}, {"2001:db8::5", true}, {"192.0.2.1", false}, {"host.example", false}, {"", false}};
    for (auto [text, yes] : v6) {
        EXPECT_EQ(yes, AdapterAgent::isv6check(text)) << text;
    }
    const std::pair<const char*, int> slots[] = {{"12", 12}, {"x", 0}, {"-3", -3}, {"99999999999", 0}, {"4abc", 0}};
    for (auto [text, slot] : slots) {
        EXPECT_EQ(slot, AdapterAgent::getCardIndex(text)) << text;
    }
}

}  // namespace
