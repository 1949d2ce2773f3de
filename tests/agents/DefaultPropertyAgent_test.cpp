// The property map file and the default agent's rules: privileges, bounds,
// types and failures of the property service.
#include "DefaultPropertyAgent.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "AgentHarness.h"
#include "ReplyText.h"

namespace {

class MapFile : public testing::Test {
protected:
    // A harness whose default agent reads `map` (read when the connection is made).
    std::unique_ptr<AgentHarness> withMap(const std::string& map)
    {
        mapPath = std::string(getenv("GDS_TEST_TMP") ? getenv("GDS_TEST_TMP") : "/tmp") + "/map-" +
                  testing::UnitTest::GetInstance()->current_test_info()->name() + ".properties";
        FILE* f = fopen(mapPath.c_str(), "w");
        fputs(map.c_str(), f);
        fclose(f);
        setenv("MORVANE_MAP_PROP_FILE", mapPath.c_str(), 1);
        return std::make_unique<AgentHarness>();
    }
    void TearDown() override
    {
        unsetenv("MORVANE_MAP_PROP_FILE");
        remove(mapPath.c_str());
    }
    std::string mapPath;
};

const std::string kOk = okReply("");
const std::string kFailed = "<root>" + kGeneralError;
const char kRefused[] = "<root><status>error</status><errorMsg>Insufficient privileges.</errorMsg></root>";

// Privileges, bounds and types in one table: each set's reply and the value read back. A later
// map line replaces an earlier one; bad lines are skipped.
TEST_F(MapFile, PrivilegesBoundsAndTypes)
{
    testing::internal::CaptureStdout();  // the bad lines are reported there
    auto h = withMap(
        "# comment\nhostname,other,string,1\nbadpriv,x,int,notanumber\ntwo,commas\n\nlow,low_only,int,1,10\n"
        "hostname,net_hostname,string,4\nlocked,locked_name,string,0\ntimeout,web_timeout,int,1,60,3600\n"
        "port,web_port,int,1,*,65535\nhex,hex_bound,int,1,0x10,0x20\n"
        "flag,some_flag,bool,1\nname,some_name,string,1\nsecret,some_secret,crypt,1\n");
    testing::internal::GetCapturedStdout();
    struct Case {
        const char* request;
        int mask;
        std::string reply;
        const char* get;  // the element text afterwards
    } cases[] = {
        {"set=hostname:a", 4, kOk, "<hostname>a</hostname>"},
        {"set=hostname:c", 2, kRefused, "<hostname>a</hostname>"},
        {"set=locked:e", 0x7f, kRefused, "locked>"},
        {"set=locked:f", 0, kOk, "<locked>f</locked>"},
        {"set=timeout:30", 0x7f, kFailed, "timeout>"},
        {"set=timeout:60", 0x7f, kOk, "<timeout>60</timeout>"},
        {"set=timeout:3601", 0x7f, kFailed, "<timeout>60</timeout>"},
        {"set=port:0", 0x7f, kOk, "<port>0</port>"},
        {"set=port:65536", 0x7f, kFailed, "<port>0</port>"},
        {"set=low:10", 0x7f, kFailed, "low>"},  // a missing maximum reads as 0: nothing fits
        {"set=hex:17", 0x7f, kOk, "<hex>17</hex>"},
        {"set=hex:33", 0x7f, kFailed, "<hex>17</hex>"},
        {"set=flag:5", 0x7f, kOk, "<flag>1</flag>"},
        {"set=flag:yes", 0x7f, kFailed, "<flag>1</flag>"},
        {"set=name:a<b", 0x7f, kOk, "<name>a&lt;b</name>"},
        {"set=secret:hush", 0x7f, kOk, "<secret>hush</secret>"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.reply, h->request(c.request, c.mask)) << c.request << " mask " << c.mask;
        std::string name = std::string(c.request).substr(4, std::string(c.request).find(':') - 4);
        EXPECT_NE(std::string::npos, h->request("get=" + name, 0).find(c.get)) << c.request;
    }
    // A range failure stops the entries after it; a parse failure does not.
    EXPECT_EQ(kFailed, h->request("set=timeout:1,port:80"));
    EXPECT_NE(std::string::npos, h->request("get=port").find("<port>0</port>"));
    EXPECT_EQ(kFailed, h->request("set=flag:no,port:81"));
    EXPECT_NE(std::string::npos, h->request("get=port").find("<port>81</port>"));
}

TEST_F(MapFile, UnreadablePropertiesAnswerEmptyAndFail)
{
    auto h = withMap("flag,never_set_flag,bool,1\nname,never_set_name,string,1\n");
    EXPECT_EQ(std::string("<root><flag></flag>\n<name></name>\n") + kFailed.substr(6), h->request("get=flag,name"));
    h->root().writeFile("/var/aim/faults/set.never_set_name", "");
    EXPECT_EQ(kFailed, h->request("set=name:x"));
}

TEST_F(MapFile, MissingMapFileServesNothing)
{
    setenv("MORVANE_MAP_PROP_FILE", "/nonexistent/map.properties", 1);
    AgentHarness h;
    EXPECT_EQ(kOk, h.request("get=hostname"));
    EXPECT_EQ(kOk, h.request("set=hostname:x"));
}

}  // namespace
