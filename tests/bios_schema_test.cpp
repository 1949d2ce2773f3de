// The BIOS schema and token document readers, fed from memory streams.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "BIOSToken.h"
#include "TestRoot.h"
#include "bios_schema.h"
#include "bios_util.h"

namespace {

std::vector<std::string> g_syslog;
void captureSyslog(const char* message)
{
    g_syslog.push_back(message);
}

FILE* memoryFile(const std::string& text)
{
    // fmemopen refuses a zero-sized buffer on some C libraries.
    static std::string keep;
    keep = text.empty() ? std::string(1, '\0') : text;
    return fmemopen(&keep[0], text.empty() ? 0 : keep.size(), "r");
}

struct SchemaResult {
    int guidResult = 0;
    std::string guid;
    int paramsResult = 0;
};

// Reads a schema the way the store does, into the store's emptied maps.
SchemaResult readSchema(const std::string& text)
{
    BIOSToken::getBIOSTokenInstance()->clearTokenMaps();
    SchemaResult r;
    FILE* f = memoryFile(text);
    char guid[kBiosXmlBufferSize] = "";
    r.guidResult = getGuidValue(f, guid);
    r.guid = guid;
    r.paramsResult = getBiosParamsHeader(f);
    while (getGroup(f)) {
    }
    if (f != nullptr) {
        fclose(f);
    }
    return r;
}

BIOSTokenMap& tokens(BIOSTokenType type)
{
    return BIOSToken::getBIOSTokenInstance()->getTokenMap(type);
}

std::string schema(const std::string& groups)
{
    return "<?xml version=\"1.0\"?>\n<schema version=\"1\">\n <bios-header>\n  <guid value=\"g-1 x\" />\n"
           "  <other value=\"o\" />\n </bios-header>\n <bios-params>\n" +
           groups + " </bios-params>\n</schema>\n";
}

const char kOnOff[] =
    "<option name=\"Disabled\" value=\"0\" />\n"
    "<option name=\"Enabled\" value=\"1\" default=\"true\" />\n";

std::string setting(const std::string& target, const std::string& name, const std::string& options = kOnOff)
{
    return "<setting target=\"" + target + "\" name=\"" + name + "\" type=\"enum\">\n" + options + "</setting>\n";
}

class BiosSchemaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_syslog.clear();
        bios_syslog_set_hook(captureSyslog);
    }
    void TearDown() override { bios_syslog_set_hook(nullptr); }
};

TEST_F(BiosSchemaTest, ReadsGroupsSubgroupsSettingsAndOptions)
{
    SchemaResult r = readSchema(schema(
        "<group name=\"Main\">\n" + setting("QuietBoot", "Quiet Boot") + setting("Mode", "Boot Mode") + "</group>\n" +
        "<group name=\"Advanced\">\n<subgroup name=\"CPU\">\n" + setting("Turbo", "Turbo Mode") +
        "</subgroup>\n<subgroup name=\"Memory\">\n" + setting("Numa", "NUMA") + "</subgroup>\n</group>\n" +
        "<group name=\"Server Management\">\n" +
        setting("Baud", "Baud Rate",
                "<option name=\"9600\" value=\"0\" />\n<option name=\"115200\" value=\"4\" default=\"true\" />\n") +
        "</group>\n"));
    EXPECT_EQ(1, r.guidResult);
    EXPECT_EQ("g-1", r.guid);  // the GUID stops at a blank
    EXPECT_EQ(1, r.paramsResult);
    ASSERT_EQ(2u, tokens(BIOS_TOKEN_MAIN).size());
    ASSERT_EQ(2u, tokens(BIOS_TOKEN_ADVANCED).size());
    ASSERT_EQ(1u, tokens(BIOS_TOKEN_SERVER_MANAGEMENT).size());
    const tokenInfo* quiet = tokens(BIOS_TOKEN_MAIN).at("QuietBoot");
    EXPECT_EQ("Quiet Boot", quiet->settingName);
    EXPECT_EQ("", quiet->helpText);
    ASSERT_EQ(2u, quiet->options.size());
    EXPECT_EQ(0, quiet->options.at("Disabled").value);
    EXPECT_EQ(0, quiet->options.at("Disabled").isDefault);
    EXPECT_EQ(1, quiet->options.at("Enabled").value);
    EXPECT_EQ(1, quiet->options.at("Enabled").isDefault);
    EXPECT_EQ("NUMA", tokens(BIOS_TOKEN_ADVANCED).at("Numa")->settingName);
    EXPECT_EQ(4, tokens(BIOS_TOKEN_SERVER_MANAGEMENT).at("Baud")->options.at("115200").value);
}

TEST_F(BiosSchemaTest, OptionValuesAndDefaults)
{
    const struct {
        const char* element;
        int value;
        int isDefault;
    } cases[] = {
        {"<option name=\"o\" value=\"12\" />", 12, 0},
        {"<option name=\"o\" value=\"0\" />", 0, 0},
        {"<option name=\"o\" value=\"\" />", 0, 0},
        {"<option name=\"o\" value=\"1a\" />", 255, 0},
        {"<option name=\"o\" value=\"-1\" />", 255, 0},
        {"<option name=\"o\" value=\"7\" default=\"true\" />", 7, 1},
        {"<option name=\"o\" value=\"7\" isdefault />", 7, 1},
        // The value text is cut to 27 characters: the trailing 42 is lost.
        {"<option name=\"o\" value=\"000000000000000000000000000000000042\" />", 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.element);
        FILE* f = memoryFile(std::string(c.element) + "</setting>");
        char name[kBiosXmlBufferSize];
        int value = -1;
        int isDefault = -1;
        EXPECT_EQ(1, getOption(f, name, &value, &isDefault));
        EXPECT_STREQ("o", name);
        EXPECT_EQ(c.value, value);
        EXPECT_EQ(c.isDefault, isDefault);
        EXPECT_EQ(0, getOption(f, name, &value, &isDefault));  // "/setting" ends the list
        fclose(f);
    }
}

TEST_F(BiosSchemaTest, DeviatingSchemasKeepWhatWasReadBefore)
{
    const std::string main = "<group name=\"Main\">\n" + setting("A", "Token A") + "</group>\n";
    const std::string server = "<group name=\"Server Management\">\n" + setting("D", "Token D") + "</group>\n";
    const struct {
        const char* name;
        std::string text;
        int guidResult;
        size_t mainTokens, advancedTokens, serverTokens;
        bool logsElse;
    } cases[] = {
        {"no declaration", schema(main).substr(schema(main).find('\n') + 1), 0, 0, 0, 0, false},
        {"unknown group stops the schema",
         schema(main + "<group name=\"Other\">\n" + setting("X", "X") + "</group>\n" + server), 1, 1, 0, 0, true},
        {"settings straight in Advanced",
         schema(main + "<group name=\"Advanced\">\n" + setting("C", "C") + "</group>\n" + server), 1, 1, 0, 0, false},
        {"truncated in the header", schema(main).substr(0, schema(main).find("</bios-header")), 0, 0, 0, 0, false},
        {"no guid", "<?xml?><schema><bios-header><id value=\"1\" /></bios-header><bios-params>" + main, 0, 1, 0, 0,
         false},
        {"empty", "", 0, 0, 0, 0, false},
        {"empty groups", schema("<group name=\"Main\">\n</group>\n<group name=\"Advanced\">\n</group>\n" + server), 1,
         0, 0, 1, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        g_syslog.clear();
        SchemaResult r = readSchema(c.text);
        EXPECT_EQ(c.guidResult, r.guidResult);
        EXPECT_EQ(c.mainTokens, tokens(BIOS_TOKEN_MAIN).size());
        EXPECT_EQ(c.advancedTokens, tokens(BIOS_TOKEN_ADVANCED).size());
        EXPECT_EQ(c.serverTokens, tokens(BIOS_TOKEN_SERVER_MANAGEMENT).size());
        EXPECT_EQ(
            c.logsElse ? std::vector<std::string>{"Important - hitting this else!\n"} : std::vector<std::string>{},
            g_syslog);
    }
}

TEST_F(BiosSchemaTest, TargetTokensAndLongTextsAreCut)
{
    const std::string longName(150, 'n');
    readSchema(schema("<group name=\"Main\">\n" + setting("Two words", "First") + setting("Dup", "Old") +
                      setting("Dup", "New") + setting(longName, longName) + "</group>\n"));
    const BIOSTokenMap& map = tokens(BIOS_TOKEN_MAIN);
    ASSERT_EQ(3u, map.size());
    EXPECT_EQ("First", map.at("Two")->settingName);
    EXPECT_EQ("New", map.at("Dup")->settingName);
    EXPECT_EQ(std::string(kBiosXmlBufferSize - 1, 'n'), map.at(std::string(99, 'n'))->settingName);
}

TEST_F(BiosSchemaTest, SimulatedSchemaAndEveryTruncation)
{
    TestRoot root(true);
    const std::string text = root.readFile("/etc/Schema_updated.xml");
    ASSERT_FALSE(text.empty());
    readSchema(text);
    EXPECT_EQ(6u, tokens(BIOS_TOKEN_MAIN).size());
    EXPECT_EQ(25u, tokens(BIOS_TOKEN_ADVANCED).size());
    EXPECT_EQ(10u, tokens(BIOS_TOKEN_SERVER_MANAGEMENT).size());
    const tokenInfo* cstate = tokens(BIOS_TOKEN_ADVANCED).at("PackageCStateLimit");
    EXPECT_EQ("Package C State Limit", cstate->settingName);
    EXPECT_EQ(0, cstate->options.at("C0 C1 State").isDefault);
    EXPECT_EQ(7, cstate->options.at("No Limit").value);
    EXPECT_EQ(1, cstate->options.at("C6 Retention").isDefault);
    // Every prefix of the schema reads without fault and never yields more.
    for (size_t n = 0; n < text.size(); n += 7) {
        readSchema(text.substr(0, n));
        ASSERT_LE(tokens(BIOS_TOKEN_MAIN).size(), 6u) << n;
    }
}

// Reads a token document the way the store does.
std::vector<std::pair<std::string, std::string>> readDocument(const std::string& text)
{
    std::vector<std::pair<std::string, std::string>> out;
    FILE* f = memoryFile(text);
    char name[kBiosXmlBufferSize];
    char value[kBiosXmlBufferSize];
    if (getFirstToken(f, name, value)) {
        out.emplace_back(name, value);
    }
    while (getNextToken(f, name, value)) {
        out.emplace_back(name, value);
    }
    if (f != nullptr) {
        fclose(f);
    }
    return out;
}

TEST_F(BiosSchemaTest, TokenDocuments)
{
    typedef std::vector<std::pair<std::string, std::string>> Tokens;
    const struct {
        const char* name;
        std::string text;
        Tokens expected;
    } cases[] = {
        {"first value stops at a blank, later ones do not",
         "<?xml version=\"1.0\" ?>\n<bios-params>\n<A value=\"Power Off\" />\n<B value=\"Power Off\" />\n"
         "</bios-params>\n",
         {{"A", "Power"}, {"B", "Power Off"}}},
        {"empty document", "", {}},
        {"no declaration", "<bios-params>\n</bios-params>\n", {}},
        {"other root", "<?xml?><params></params>", {}},
        {"no tokens", "<?xml?><bios-params> </bios-params> ", {}},
        {"truncated in a value", "<?xml?><bios-params><A value=\"1\" /><B value=\"tw", {{"A", "1"}}},
        {"overlong name and value",
         "<?xml?><bios-params><" + std::string(120, 'N') + " value=\"" + std::string(120, 'v') + "\" /></bios-params>",
         {{std::string(99, 'N'), std::string(99, 'v')}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, readDocument(c.text));
    }
}

TEST_F(BiosSchemaTest, NullArgumentsReadNothing)
{
    FILE* f = memoryFile("<?xml?><bios-params><A value=\"1\" />");
    char buf[kBiosXmlBufferSize];
    int v = 0;
    BIOSTokenMap map;
    EXPECT_EQ(-1, xmlGetChar(nullptr));
    EXPECT_EQ(-1, xmlGetNonWhiteSpace(nullptr));
    EXPECT_EQ(0, getGuidValue(nullptr, buf));
    EXPECT_EQ(0, getGuidValue(f, nullptr));
    EXPECT_EQ(0, getGroup(nullptr));
    EXPECT_EQ(0, getSetting(f, nullptr, buf, map));
    EXPECT_EQ(0, getOption(f, buf, &v, nullptr));
    EXPECT_EQ(0, getFirstToken(f, buf, nullptr));
    EXPECT_EQ(0, getNextToken(nullptr, buf, buf));
    EXPECT_EQ(nullptr, getNewSetting(nullptr));
    EXPECT_EQ('<', xmlGetChar(f));  // nothing was consumed
    fclose(f);
}

}  // namespace
