// Number reading as on the 32-bit controller: out-of-range texts saturate,
// wherever a request, a default line or an address is read.
#include "gds_number.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "AgentHarness.h"
#include "DataAgent.h"
#include "aim_config.h"

namespace {

TEST(Number, ReadersSaturateLikeThe32BitCLibrary)
{
    // text, base, strtol32, strtoul32, characters read
    const std::tuple<const char*, int, int32_t, uint32_t, int> cases[] = {
        {"4294967297", 10, INT32_MAX, UINT32_MAX, 10},
        {"99999999999", 10, INT32_MAX, UINT32_MAX, 11},
        {"-99999999999", 10, INT32_MIN, UINT32_MAX, 12},
        {"2147483647", 10, INT32_MAX, 2147483647u, 10},
        {"-2147483648", 10, INT32_MIN, 2147483648u, 11},
        {"-1", 10, -1, UINT32_MAX, 2},
        {"0xffffffff", 0, INT32_MAX, UINT32_MAX, 10},
        {"0x100000000", 0, INT32_MAX, UINT32_MAX, 11},
        {"  12abc", 10, 12, 12u, 4},
        {"abc", 10, 0, 0u, 0},
        {"99999999999999999999999", 10, INT32_MAX, UINT32_MAX, 23},
    };
    for (const auto& [text, base, asLong, asUnsigned, used] : cases) {
        char* end = nullptr;
        EXPECT_EQ(asLong, gds_strtol32(text, &end, base)) << text;
        EXPECT_EQ(used, end - text) << text;
        EXPECT_EQ(asUnsigned, gds_strtoul32(text, &end, base)) << text;
        EXPECT_EQ(used, end - text) << text;
    }
}

TEST(Number, RequestsDefaultsAndAddressesSaturate)
{
    AgentHarness h;
    // setInt of a request argument
    TokenMap map;
    map["p"].push_back(RequestToken(RequestToken::TEXT, "4294967297"));
    int v = 0;
    // Any agent will do for the value helpers: the connection's default agent.
    std::string unclaimed = "nosuchname";
    DataAgent* agent = h.connection().getDataAgentFor(unclaimed);
    ASSERT_NE(nullptr, agent);
    EXPECT_EQ(1, agent->setInt(map, v, "p"));
    EXPECT_EQ(INT32_MAX, v);
    // ipv4_conv: each part saturates, it does not wrap
    char address[] = "99999999999.1";
    EXPECT_EQ(static_cast<int>(0xffffff01u), DataAgent::ipv4_conv(address));
    // a default value line
    std::string file = h.root().writeFile("/defaults", "big,bigint,int,99999999999\nsmall,smallint,int,-99999999999\n");
    setenv("MORVANE_DEF_PROP_FILE", file.c_str(), 1);
    testing::internal::CaptureStdout();
    h.server().setDefaultProperties();
    testing::internal::GetCapturedStdout();
    unsetenv("MORVANE_DEF_PROP_FILE");
    int big = 0, small = 0;
    EXPECT_TRUE(aim_config_get_int("bigint", &big) && aim_config_get_int("smallint", &small));
    EXPECT_EQ(INT32_MAX, big);
    EXPECT_EQ(INT32_MIN, small);
}

}  // namespace
