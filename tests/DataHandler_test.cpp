// The per-connection agent registry: registration, lookup across handlers,
// the default agent, the property list and call-text splitting.
#include "DataHandler.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "AgentHarness.h"
#include "DataAgent.h"
#include "GUIDataHandler.h"
#include "StubAgent.h"

namespace {

int g_deleted = 0;

class CountingAgent : public StubAgent {
public:
    explicit CountingAgent(DataHandler& h, const char* name = "Counting") : StubAgent(h, name) {}
    ~CountingAgent() override { ++g_deleted; }
};

TEST(DataHandler, RegistersOwnsAndDeletesEachAgentOnce)
{
    AgentHarness h;
    g_deleted = 0;
    {
        DataHandler handler(h.connection());
        CountingAgent* first = new CountingAgent(handler);
        CountingAgent* second = new CountingAgent(handler);
        handler.addAgent("a", first);
        handler.addAgent("b", first);
        handler.addAgent("a", second);  // the later registration wins
        std::string a = "a", b = "b", c = "c";
        EXPECT_EQ(second, handler.getDataAgentFor(a));
        EXPECT_EQ(first, handler.getDataAgentFor(b));
        EXPECT_EQ(nullptr, handler.getDataAgentFor(c));
        std::string ui = "hostname", aim = "net_hostname";
        handler.addPropertyMap(ui, aim);
        EXPECT_EQ("net_hostname", handler.getAIMPropertyFor(ui));
        EXPECT_EQ("", handler.getAIMPropertyFor(c));
    }
    EXPECT_EQ(2, g_deleted);
}

TEST(DataHandler, ConnectionFallsBackToDefaultAgent)
{
    AgentHarness h;
    std::string unknown = "fooBar";
    DataAgent* agent = h.connection().getDataAgentFor(unknown);
    ASSERT_NE(nullptr, agent);
    EXPECT_STREQ("DefaultPropertyAgent", agent->getName());
    GUIDataHandler* gui = static_cast<GUIDataHandler*>(&h.dataHandler());
    EXPECT_EQ(gui->getDefaultAgent(), agent);
}

TEST(DataHandler, PropertyListSkipsViewerNames)
{
    AgentHarness h;
    std::vector<std::string> names = {"kept"};
    static_cast<GUIDataHandler&>(h.dataHandler()).getPropertyList(names);
    EXPECT_EQ("kept", names[0]);
    EXPECT_TRUE(std::is_sorted(names.begin() + 1, names.end()));
    EXPECT_NE(names.end(), std::find(names.begin(), names.end(), "kvm.jnlp"));
    EXPECT_EQ(names.end(), std::find(names.begin(), names.end(), "viewer.jnlp"));
}

TEST(DataHandler, ParseFunction)
{
    struct Case {
        std::string text;
        int result;
        const char* name;
        std::vector<std::string> args;
    };
    std::vector<Case> cases = {
        {"f(a,,b)", 1, "f", {"a", "", "b"}},
        {"f()", 1, "f", {""}},
        {"name(1)", 1, "name", {"1"}},
        {"(x)", 1, "", {"x"}},
        {"f(a)tail", 1, "f", {"a"}},
        {"f(a", 0, "", {}},
        {"fa)", 0, "", {}},
        {"noparens", 0, "", {}},
        {std::string(255, 'n') + "()", 1, "NAME255", {""}},
        {std::string(255, 'n') + "(x)", 0, "", {}},  // ")" lies 257 characters in
    };
    AgentHarness h;
    DataHandler handler(h.connection());
    for (const Case& c : cases) {
        char buffer[300] = "";
        char* name = buffer;
        std::vector<std::string> args = {"stale"};
        EXPECT_EQ(c.result, handler.parseFunction(const_cast<std::string&>(c.text), name, args)) << c.text;
        if (c.result == 1) {
            std::string expectedName = std::string(c.name) == "NAME255" ? std::string(255, 'n') : c.name;
            EXPECT_EQ(expectedName, std::string(buffer)) << c.text;
            EXPECT_EQ(c.args, args) << c.text;
        } else {
            EXPECT_TRUE(args.empty()) << c.text;
        }
    }
}

}  // namespace
