// The agent base class's value helpers, the property tool query and the
// timed sleep.
#include "DataAgent.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "AgentHarness.h"
#include "DataHandler.h"
#include "StubAgent.h"

namespace {

class PlainAgent : public StubAgent {
public:
    explicit PlainAgent(DataHandler& h) : StubAgent(h, "Plain") {}
};

TokenMap mapOf(const std::vector<std::pair<std::string, std::vector<std::string>>>& entries)
{
    TokenMap map;
    for (const auto& e : entries) {
        std::vector<RequestToken> args;
        for (const std::string& a : e.second) {
            args.push_back(RequestToken(RequestToken::TEXT, a));
        }
        map[e.first] = args;
    }
    return map;
}

class DataAgentTest : public testing::Test {
protected:
    AgentHarness h;
    PlainAgent agent{h.dataHandler()};
};

TEST_F(DataAgentTest, SetString)
{
    struct Case {
        const char* arg;  // null: name absent
        int size;
        bool trim;
        int result;
        const char* buffer;  // expected; "UNTOUCHED" when left alone
    };
    std::vector<Case> cases = {
        {"hello", 16, false, 1, "hello"},    {"hello", 3, false, 1, "he"}, {"hello", 1, false, 1, ""},
        {"hello", 0, false, 0, "UNTOUCHED"}, {nullptr, 16, false, 0, ""},  {"\" ab \"", 16, true, 1, "ab"},
        {"\"\"", 16, true, 1, "\"\""},       {"  ", 16, true, 1, "  "},    {"\" ab \"", 16, false, 1, "\" ab \""},
    };
    for (const Case& c : cases) {
        TokenMap map = c.arg != nullptr ? mapOf({{"p", {c.arg}}}) : mapOf({});
        char buffer[32];
        memset(buffer, 'x', sizeof buffer);
        memcpy(buffer, "UNTOUCHED", 10);
        EXPECT_EQ(c.result, agent.setString(map, buffer, "p", c.size, c.trim)) << (c.arg ? c.arg : "(absent)");
        EXPECT_STREQ(c.buffer, buffer) << (c.arg ? c.arg : "(absent)") << " size " << c.size;
        // A copied text is zeroed through the last byte of the buffer.
        EXPECT_TRUE(c.result == 0 || buffer[c.size - 1] == '\0') << (c.arg ? c.arg : "(absent)") << " size " << c.size;
    }
    TokenMap noArgs = mapOf({{"p", {}}});
    char buffer[8] = "x";
    EXPECT_EQ(0, agent.setString(noArgs, buffer, "p", 8, false));
    EXPECT_STREQ("", buffer);
}

TEST_F(DataAgentTest, NumericArguments)
{
    struct Case {
        const char* arg;  // null: absent; "" with no tokens: "NOARGS"
        int intResult;
        int intValue;
        int byteValue;  // as unsigned byte
    };
    std::vector<Case> cases = {
        {"12", 1, 12, 12},   {"12abc", 1, 12, 12}, {" -7", 1, -7, 249},   {"300", 1, 300, 44}, {"", 0, 99, 99},
        {"true", 0, 99, 99}, {nullptr, 0, 0, 0},   {"NOARGS", 0, 99, 99}, {"+5", 1, 5, 5},     {"abc", 0, 99, 99},
    };
    for (const Case& c : cases) {
        TokenMap map;
        if (c.arg == nullptr) {
            map = mapOf({});
        } else if (std::string(c.arg) == "NOARGS") {
            map = mapOf({{"p", {}}});
        } else {
            map = mapOf({{"p", {c.arg}}});
        }
        int v = 99;
        EXPECT_EQ(c.intResult, agent.setInt(map, v, "p")) << (c.arg ? c.arg : "(absent)");
        EXPECT_EQ(c.intValue, v) << (c.arg ? c.arg : "(absent)");
        unsigned char u = 99;
        agent.setuByte(map, u, "p");
        EXPECT_EQ(c.byteValue, u) << (c.arg ? c.arg : "(absent)");
        signed char s = 99;
        agent.setBoolean(map, s, "p");
        EXPECT_EQ(static_cast<signed char>(c.byteValue), s) << (c.arg ? c.arg : "(absent)");
    }
}

TEST_F(DataAgentTest, LookupStringAndStrictParse)
{
    TokenMap map = mapOf({{"a", {"x", "y"}}, {"empty", {}}});
    std::string value = "old";
    std::string a = "a", empty = "empty", missing = "missing";
    EXPECT_EQ(1, agent.lookupString(map, a, value));
    EXPECT_EQ("x", value);
    EXPECT_EQ(1, agent.lookupString(map, empty, value));
    EXPECT_EQ("", value);
    value = "old";
    EXPECT_EQ(0, agent.lookupString(map, missing, value));
    EXPECT_EQ("", value);

    struct Case {
        const char* text;
        int result;
        int value;
    };
    for (const Case& c : std::vector<Case>{
             {"007", 1, 7}, {"", 1, 0}, {"-5", 0, 42}, {" 5", 0, 42}, {"5x", 0, 42}, {"99999999999", 1, 2147483647}}) {
        int v = 42;
        EXPECT_EQ(c.result, agent.parseInt(c.text, v)) << c.text;
        EXPECT_EQ(c.value, v) << c.text;
    }
}

TEST_F(DataAgentTest, GetValueRunsThePropertyTool)
{
    std::string path = getenv("PATH") != nullptr ? getenv("PATH") : "/usr/bin:/bin";
    setenv("PATH", (h.root().dir() + "/usr/local/bin:" + path).c_str(), 1);
    AIMClient& aim = h.server().getAIMClient();
    aim.setProperty("pwState", 0, true);
    EXPECT_EQ("0\n", agent.getValue("pwState"));
    EXPECT_TRUE(agent.powerOff());
    aim.setProperty("pwState", 1, true);
    EXPECT_TRUE(agent.powerOn());
    EXPECT_EQ("", agent.getValue("noSuchProperty"));
    setenv("PATH", path.c_str(), 1);
    // Without the tool the state is unreadable, which counts as on.
    setenv("PATH", "/nonexistent", 1);
    EXPECT_EQ("", agent.getValue("pwState"));
    EXPECT_TRUE(agent.powerOn());
    setenv("PATH", path.c_str(), 1);
}

TEST_F(DataAgentTest, ThreadSleepWaitsTheWholeTime)
{
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, agent.threadSleep(0, 1200));  // carries into the seconds field
    auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    EXPECT_GE(waited.count(), 1150);
}

}  // namespace
