// The property map file and the default agent's rules: privileges, bounds,
// types and failures of the property service.
#include "DefaultPropertyAgent.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "AgentHarness.h"
#include "GUIDataHandler.h"

namespace {

class MapFile : public testing::Test {
protected:
    // A harness whose connection's default agent reads `map`.
    std::unique_ptr<AgentHarness> withMap(const std::string& map)
    {
        // The agents read the map when the connection is made, so the file
        // must exist before the harness builds its connection.
        mapPath = std::string(getenv("GDS_TEST_TMP") ? getenv("GDS_TEST_TMP") : "/tmp") + "/map-" +
                  testing::UnitTest::GetInstance()->current_test_info()->name() + ".properties";
        FILE* f = fopen(mapPath.c_str(), "w");
        fputs(map.c_str(), f);
        fclose(f);
        setenv("MORVANE_MAP_PROP_FILE", mapPath.c_str(), 1);
        auto h = std::make_unique<AgentHarness>();
        return h;
    }
    void TearDown() override
    {
        unsetenv("MORVANE_MAP_PROP_FILE");
        if (!mapPath.empty()) {
            remove(mapPath.c_str());
        }
    }
    std::string mapPath;
};

const char kOk[] = "<root><status>ok</status>\n</root>\n";
const char kFailed[] =
    "<root><status>error</status>\n<errorMsg>The current operation failed. BRESK may be running any critical "
    "operation or in error state. Retry after sometime or reboot BRESK if necessary </errorMsg>\n</root>\n";
const char kRefused[] = "<root><status>error</status><errorMsg>Insufficient privileges.</errorMsg></root>";

TEST_F(MapFile, ParsesFieldsAndReportsBadLines)
{
    testing::internal::CaptureStdout();
    auto h = withMap(
        "# comment\n"
        "hostname,net_hostname,string,4\n"
        "\n"
        "timeout,web_timeout,int,1,60,3600\n"
        "port,web_port,int,1,*,65535\n"
        "flag,some_flag,bool,2\n"
        "odd,odd_name,float,2\n"
        "badpriv,x,int,notanumber\n"
        "two,commas\n"
        "hostname,net_hostname2,string,4\n");
    std::string out = testing::internal::GetCapturedStdout();
    DataAgent* agent = static_cast<GUIDataHandler*>(&h->dataHandler())->getDefaultAgent();
    auto& table = static_cast<DefaultPropertyAgent*>(agent)->getPropertyTable();
    ASSERT_EQ(5u, table.size());
    EXPECT_EQ("net_hostname2", table.at("hostname")->aimName);  // a later line replaces
    EXPECT_EQ(4, table.at("hostname")->privilege);
    EXPECT_EQ(PropertyInfo::INT, table.at("timeout")->type);
    EXPECT_EQ("60", table.at("timeout")->minValue);
    EXPECT_EQ("3600\n", table.at("timeout")->maxValue);  // the last field keeps the line end
    EXPECT_EQ("*", table.at("port")->minValue);
    EXPECT_EQ(0, table.at("odd")->type);
    EXPECT_NE(std::string::npos, out.find("Failed to load property definition from line number 3: \n"));
    EXPECT_NE(std::string::npos, out.find("Failed to load property definition from line number 8: badpriv"));
    EXPECT_NE(std::string::npos, out.find("Failed to load property definition from line number 9: two,commas\n"));
}

TEST_F(MapFile, PrivilegeMatrix)
{
    auto h = withMap("hostname,net_hostname,string,4\nlocked,locked_name,string,0\n");
    struct Case {
        const char* request;
        int mask;
        const char* reply;
    };
    for (const Case& c : std::vector<Case>{{"set=hostname:a", 4, kOk},
                                           {"set=hostname:b", 6, kOk},
                                           {"set=hostname:c", 2, kRefused},
                                           {"set=hostname:d", 0, kOk},
                                           {"set=locked:e", 0x7f, kRefused},
                                           {"set=locked:f", 0, kOk}}) {
        EXPECT_EQ(c.reply, h->request(c.request, c.mask)) << c.request << " mask " << c.mask;
    }
    EXPECT_EQ("<root><hostname>d</hostname>\n<locked>f</locked>\n<status>ok</status>\n</root>\n",
              h->request("get=hostname,locked", 0));
}

TEST_F(MapFile, BoundsAndTypes)
{
    auto h = withMap(
        "timeout,web_timeout,int,1,60,3600\n"
        "port,web_port,int,1,*,65535\n"
        "low,low_only,int,1,10\n"
        "hex,hex_bound,int,1,0x10,0x20\n"
        "flag,some_flag,bool,1\n"
        "name,some_name,string,1\n"
        "secret,some_secret,crypt,1\n");
    struct Case {
        const char* request;
        const char* reply;
        const char* get;  // the element text afterwards
    };
    std::vector<Case> cases = {
        {"set=timeout:30", kFailed, "timeout>"},
        {"set=timeout:60", kOk, "<timeout>60</timeout>"},
        {"set=timeout:3600", kOk, "<timeout>3600</timeout>"},
        {"set=timeout:3601", kFailed, "<timeout>3600</timeout>"},
        {"set=port:0", kOk, "<port>0</port>"},
        {"set=port:65536", kFailed, "<port>0</port>"},
        // With only a minimum, the missing maximum reads as 0: nothing fits.
        {"set=low:5", kFailed, "low>"},
        {"set=low:10", kFailed, "low>"},
        {"set=hex:17", kOk, "<hex>17</hex>"},
        {"set=hex:33", kFailed, "<hex>17</hex>"},
        {"set=flag:5", kOk, "<flag>1</flag>"},
        {"set=flag:0", kOk, "<flag>0</flag>"},
        {"set=flag:yes", kFailed, "<flag>0</flag>"},
        {"set=name:a<b", kOk, "<name>a&lt;b</name>"},
        {"set=secret:hush", kOk, "<secret>hush</secret>"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.reply, h->request(c.request)) << c.request;
        std::string name = std::string(c.request).substr(4, std::string(c.request).find(':') - 4);
        EXPECT_NE(std::string::npos, h->request("get=" + name).find(c.get)) << c.request;
    }
    // A range failure stops the entries after it; a parse failure does not.
    EXPECT_EQ(kFailed, h->request("set=timeout:1,port:80"));
    EXPECT_NE(std::string::npos, h->request("get=port").find("<port>0</port>"));
    EXPECT_EQ(kFailed, h->request("set=flag:no,port:81"));
    EXPECT_NE(std::string::npos, h->request("get=port").find("<port>81</port>"));
}

TEST_F(MapFile, UnreadablePropertiesAnswerEmptyAndFail)
{
    auto h = withMap("flag,never_set_flag,bool,1\nname,never_set_name,string,1\nnoaim,,string,1\n");
    EXPECT_EQ(std::string("<root><flag></flag>\n<name></name>\n") + (kFailed + 6), h->request("get=flag,name"));
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
