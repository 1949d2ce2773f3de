// The adapter agent's property-file runner: what it writes, what it refuses
// before anything runs, and that its file is gone afterwards in every case.
#include <gtest/gtest.h>

#include "AdapterAgent.h"
#include "AgentHarness.h"

namespace {

class Agent : public AdapterAgent {
public:
    using AdapterAgent::AdapterAgent;
    using AdapterAgent::updateBackend;
    using AdapterAgent::vnicPropertyFile;
};

TEST(AdapterAgentVnic, UpdateBackend)
{
    AgentHarness h;
    Agent agent{h.dataHandler()};
    auto tokens = [](std::initializer_list<const char*> texts) {
        std::vector<RequestToken> v;
        for (const char* t : texts) {
            v.emplace_back(RequestToken::TEXT, t);
        }
        return v;
    };
    const std::string canary = h.root().path("/tmp/canary");
    struct Case {
        const char* what;
        TokenMap arguments;
        const char* tail;  // after "cat FILE"
        int result;
        std::string output;
    };
    const Case cases[] = {
        {"lines in key order, first value",
         {{"vlan", tokens({"100", "7"})}, {"mtu", tokens({"9000"})}},
         "",
         0,
         "mtu 9000 \nvlan 100 \n"},
        {"an empty value is a value", {{"description", tokens({""})}}, "", 0, "description  \n"},
        {"the tool's exit status and output", {{"mtu", tokens({"9000"})}}, "; exit 3", 3, "mtu 9000 \n"},
        {"no value", {{"mtu", {}}}, "", -1, "Invalid property value."},
        {"a line end in a value", {{"mtu", tokens({"9000\nvlan 5"})}}, "", -1, "Invalid property value."},
        {"shell text in a value", {{"mtu", tokens({"$(touch x)"})}}, "", -1, "Invalid property value."},
        {"a blank in a name", {{"mtu 1\nvlan", tokens({"1"})}}, "", -1, "Invalid property name."},
    };
    std::string first;
    for (const Case& c : cases) {
        std::string file = agent.vnicPropertyFile();
        EXPECT_NE(file, first);  // a fresh name per call
        first = file;
        std::string command = "sh -c 'touch " + canary + "; cat " + file + c.tail + "'";
        TokenMap arguments = c.arguments;
        std::string output = "old";
        EXPECT_EQ(c.result, agent.updateBackend(command.c_str(), arguments, output, file.c_str())) << c.what;
        EXPECT_EQ(c.output, output) << c.what;
        EXPECT_EQ(c.result != -1, h.root().exists("/tmp/canary")) << c.what;  // refused: nothing ran
        EXPECT_FALSE(h.root().exists(file.substr(h.root().path("").size()))) << c.what;
        unlink(canary.c_str());
    }
    TokenMap none;
    std::string output;
    EXPECT_EQ(-1, agent.updateBackend(nullptr, none, output, "/tmp/x"));
    EXPECT_EQ("Internal error.", output);
    // a file already there (another caller's, or a planted link) is never used
    std::string file = agent.vnicPropertyFile();
    h.root().writeFile(file.substr(h.root().path("").size()), "planted");
    EXPECT_EQ(-1, agent.updateBackend("true", none, output, file.c_str()));
    EXPECT_EQ("Internal error. User request failed.", output);
    EXPECT_EQ("planted", h.root().readFile(file.substr(h.root().path("").size())));
}

}  // namespace
