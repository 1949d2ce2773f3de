// The property map is parsed once and shared by every connection: an edit
// takes effect at the next connection, while open connections keep the
// table they started with; connections starting while the file is rewritten
// always see one whole version of it.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "AIMClient.h"
#include "GDSClient.h"
#include "GdsProcess.h"
#include "TestRoot.h"

namespace {

const char kMap[] = "/usr/local/etc/appweb/map.properties";

class SharedMap : public testing::Test {
protected:
    void SetUp() override
    {
        AIMClient aim("test", 1);
        ASSERT_TRUE(aim.initialize());
        aim.setProperty("first_name", "one", true);
        aim.setProperty("second_name", "two", true);
        writeMap("first_name");
        ASSERT_TRUE(gds.start()) << gds.output();
    }

    // Replaces the map file as an editor would: a new file renamed over it.
    void writeMap(const std::string& aimName)
    {
        std::string next = root.writeFile("/map.next", "name," + aimName + ",string,2\n");
        ASSERT_EQ(0, rename(next.c_str(), root.path(kMap).c_str()));
    }

    TestRoot root{true};
    GdsProcess gds{root};
};

const std::string kOne = "<root><name>one</name>\n<status>ok</status>\n</root>\n";
const std::string kTwo = "<root><name>two</name>\n<status>ok</status>\n</root>\n";

TEST_F(SharedMap, AnEditTakesEffectAtTheNextConnection)
{
    GDSClient before(gds.options());
    before.connect();
    EXPECT_EQ(kOne, before.request("get=name").text);
    writeMap("second_name");
    GDSClient after(gds.options());
    after.connect();
    EXPECT_EQ(kTwo, after.request("get=name").text);
    EXPECT_EQ(kOne, before.request("get=name").text);  // its agents keep their table
}

TEST_F(SharedMap, ConnectionsWhileTheFileIsRewrittenSeeOneWholeVersion)
{
    std::vector<std::thread> clients;
    std::vector<std::string> bad(8);
    for (int t = 0; t < 8; ++t) {
        clients.emplace_back([&, t] {
            for (int i = 0; i < 40; ++i) {
                try {
                    GDSClient c(gds.options());
                    c.connect();
                    std::string reply = c.request("get=name").text;
                    if (reply != kOne && reply != kTwo) {
                        bad[t] = reply;
                    }
                } catch (const std::exception& e) {
                    bad[t] = e.what();
                }
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        writeMap(i % 2 == 0 ? "second_name" : "first_name");
    }
    for (std::thread& c : clients) {
        c.join();
    }
    for (const std::string& b : bad) {
        EXPECT_EQ("", b);
    }
    EXPECT_TRUE(gds.isRunning());
}

}  // namespace
