// The agent base class's argument helpers and the property tool query.
#include "DataAgent.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <tuple>

#include "AgentHarness.h"
#include "StubAgent.h"

namespace {

// "p" with `arg` as its one argument; null: "p" absent; "NOARGS": "p" without arguments.
TokenMap mapOf(const char* arg)
{
    TokenMap map;
    if (arg != nullptr) {
        map["p"];
        if (strcmp(arg, "NOARGS") != 0) {
            map["p"].push_back(RequestToken(RequestToken::TEXT, arg));
        }
    }
    return map;
}

class DataAgentTest : public testing::Test {
protected:
    AgentHarness h;
    StubAgent agent{h.dataHandler(), "Plain"};
};

TEST_F(DataAgentTest, SetString)
{
    // argument, buffer size, trim quotes, result, buffer afterwards ("UNTOUCHED" when left alone)
    const std::tuple<const char*, int, bool, int, const char*> cases[] = {
        {"hello", 3, false, 1, "he"}, {"hello", 0, false, 0, "UNTOUCHED"}, {nullptr, 16, false, 0, ""},
        {"NOARGS", 8, false, 0, ""},  {"\" ab \"", 16, true, 1, "ab"},     {"\"\"", 16, true, 1, "\"\""}};
    for (const auto& [arg, size, trim, result, expected] : cases) {
        TokenMap map = mapOf(arg);
        char buffer[32];
        memset(buffer, 'x', sizeof buffer);
        memcpy(buffer, "UNTOUCHED", 10);
        EXPECT_EQ(result, agent.setString(map, buffer, "p", size, trim)) << (arg ? arg : "(absent)");
        EXPECT_STREQ(expected, buffer) << (arg ? arg : "(absent)") << " size " << size;
        // A copied text is zeroed through the last byte of the buffer.
        EXPECT_TRUE(result == 0 || buffer[size - 1] == '\0') << (arg ? arg : "(absent)") << " size " << size;
    }
}

TEST_F(DataAgentTest, NumericArguments)
{
    // argument, setInt's result and value, the value as unsigned byte (setuByte, setBoolean)
    const std::tuple<const char*, int, int, int> cases[] = {{"12abc", 1, 12, 12}, {" -7", 1, -7, 249},
                                                            {"300", 1, 300, 44},  {"", 0, 99, 99},
                                                            {nullptr, 0, 0, 0},   {"NOARGS", 0, 99, 99}};
    for (const auto& [arg, intResult, intValue, byteValue] : cases) {
        TokenMap map = mapOf(arg);
        int v = 99;
        unsigned char u = 99;
        signed char s = 99;
        EXPECT_EQ(intResult, agent.setInt(map, v, "p")) << (arg ? arg : "(absent)");
        agent.setuByte(map, u, "p");
        agent.setBoolean(map, s, "p");
        EXPECT_EQ(intValue, v) << (arg ? arg : "(absent)");
        EXPECT_EQ(byteValue, u) << (arg ? arg : "(absent)");
        EXPECT_EQ(static_cast<signed char>(byteValue), s) << (arg ? arg : "(absent)");
    }
}

TEST_F(DataAgentTest, StrictParse)
{
    const std::tuple<const char*, int, int> cases[] = {
        {"007", 1, 7}, {"", 1, 0}, {"-5", 0, 42}, {"5x", 0, 42}, {"99999999999", 1, 2147483647}};
    for (const auto& [text, result, expected] : cases) {
        int v = 42;
        EXPECT_EQ(result, agent.parseInt(text, v)) << text;
        EXPECT_EQ(expected, v) << text;
    }
}

TEST_F(DataAgentTest, GetValueRunsThePropertyTool)
{
    std::string path = getenv("PATH");
    setenv("PATH", (h.root().dir() + "/usr/local/bin:" + path).c_str(), 1);
    AIMClient& aim = h.server().getAIMClient();
    aim.setProperty("pwState", 0, true);
    EXPECT_EQ("0\n", agent.getValue("pwState"));
    EXPECT_TRUE(agent.powerOff());
    aim.setProperty("pwState", 1, true);
    EXPECT_TRUE(agent.powerOn());
    // Without the tool the state is unreadable, which counts as on.
    setenv("PATH", "/nonexistent", 1);
    EXPECT_EQ("", agent.getValue("pwState"));
    EXPECT_TRUE(agent.powerOn());
    setenv("PATH", path.c_str(), 1);
}

}  // namespace
