// The per-connection agent registry: registration, ownership, the property list and call-text
// splitting.
#include "DataHandler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "AgentHarness.h"
#include "GUIDataHandler.h"
#include "StubAgent.h"

namespace {

int g_deleted = 0;

struct CountingAgent : StubAgent {
    explicit CountingAgent(DataHandler& h) : StubAgent(h, "Counting") {}
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
    }
    EXPECT_EQ(2, g_deleted);
}

int g_made = 0;
DataAgent* makeCounting(DataHandler& h)
{
    ++g_made;
    return new CountingAgent(h);
}

// Agents registered through a maker are built by the first lookup of one of their names, once per
// handler. Handlers that registered the same names share one table: a later registration on one
// of them must change only its own.
TEST(DataHandler, BuildsAgentsOnFirstUseAndKeepsSharedTablesApart)
{
    AgentHarness h;
    g_deleted = g_made = 0;
    {
        DataHandler one(h.connection()), two(h.connection()), three(h.connection());
        for (DataHandler* d : {&one, &two, &three}) {
            d->addAgent("x", &makeCounting);
            d->addAgent(d == &three ? "q" : "y", &makeCounting);  // three starts like the others, then differs
            d->shareNames();
        }
        EXPECT_EQ(0, g_made);
        std::string x = "x", y = "y", z = "z", q = "q";
        EXPECT_EQ(nullptr, three.getDataAgentFor(y));
        EXPECT_EQ(nullptr, one.getDataAgentFor(q));
        DataAgent* agent = one.getDataAgentFor(x);
        EXPECT_EQ(agent, one.getDataAgentFor(y));
        two.addAgent("z", new CountingAgent(two));
        EXPECT_EQ(nullptr, one.getDataAgentFor(z));
        EXPECT_NE(nullptr, two.getDataAgentFor(z));
        EXPECT_NE(agent, two.getDataAgentFor(x));
        EXPECT_NE(nullptr, three.getDataAgentFor(q));
        EXPECT_EQ(3, g_made);
    }
    EXPECT_EQ(4, g_deleted);
}

// The property list leaves out the viewer documents. (Unknown names reaching the default agent is
// what the map-file tests rely on.)
TEST(DataHandler, PropertyListSkipsViewerNames)
{
    AgentHarness h;
    GUIDataHandler& gui = static_cast<GUIDataHandler&>(h.dataHandler());
    std::vector<std::string> names = {"kept"};
    gui.getPropertyList(names);
    EXPECT_EQ("kept", names[0]);
    EXPECT_TRUE(std::is_sorted(names.begin() + 1, names.end()));
    EXPECT_NE(names.end(), std::find(names.begin(), names.end(), "kvm.jnlp"));
    EXPECT_EQ(names.end(), std::find(names.begin(), names.end(), "viewer.jnlp"));
}

TEST(DataHandler, ParseFunction)
{
    // text, result, name, arguments
    const std::tuple<std::string, int, std::string, std::vector<std::string>> cases[] = {
        {"f(a,,b)", 1, "f", {"a", "", "b"}},
        {"f(a)tail", 1, "f", {"a"}},
        {"f(a", 0, "", {}},
        {"fa)", 0, "", {}},
        {std::string(255, 'n') + "()", 1, std::string(255, 'n'), {""}},
        {std::string(255, 'n') + "(x)", 0, "", {}},  // ")" lies 257 characters in
    };
    AgentHarness h;
    DataHandler handler(h.connection());
    for (const auto& [text, result, name, args] : cases) {
        char buffer[300] = "";
        char* out = buffer;
        std::vector<std::string> got = {"stale"};
        EXPECT_EQ(result, handler.parseFunction(const_cast<std::string&>(text), out, got)) << text;
        EXPECT_EQ(name, std::string(buffer)) << text;
        EXPECT_EQ(args, got) << text;
    }
}

}  // namespace
