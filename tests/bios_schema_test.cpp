// The BIOS schema and token document readers, fed from memory streams.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "BIOSToken.h"
#include "TestRoot.h"
#include "bios_schema.h"
#include "bios_util.h"

namespace {

std::vector<std::string> g_syslog;

FILE* memoryFile(const std::string& text)
{
    static std::string keep;  // fmemopen refuses a zero-sized buffer on some C libraries
    keep = text.empty() ? std::string(1, '\0') : text;
    return fmemopen(&keep[0], text.empty() ? 0 : keep.size(), "r");
}

BIOSTokenMap& tokens(int type)
{
    return BIOSToken::getBIOSTokenInstance()->getTokenMap(static_cast<BIOSTokenType>(type));
}

// Reads a schema the way the store does, into the store's emptied maps; the
// GUID read ("-" when getGuidValue failed).
std::string readSchema(const std::string& text)
{
    BIOSToken::getBIOSTokenInstance()->clearTokenMaps();
    FILE* f = memoryFile(text);
    char guid[kBiosXmlBufferSize] = "";
    std::string result = getGuidValue(f, guid) ? guid : "-";
    getBiosParamsHeader(f);
    while (getGroup(f)) {
    }
    if (f != nullptr) {
        fclose(f);
    }
    return result;
}

// The three maps, "|"-separated, as "id=name(option:value[*] ...)" or only the ids.
std::string dump(bool full)
{
    std::string out;
    for (int type = 0; type < 3; ++type) {
        for (const auto& [id, info] : tokens(type)) {
            out += id + (full ? "=" + info->settingName + "(" : " ");
            for (const auto& [name, option] : info->options) {
                out += full ? name + ":" + std::to_string(option.value) + (option.isDefault ? "* " : " ") : "";
            }
            out += full ? ") " : "";
        }
        out += type < 2 ? "| " : "";
    }
    return out;
}

std::string schema(const std::string& groups)
{
    return "<?xml version=\"1.0\"?>\n<schema version=\"1\">\n <bios-header>\n  <guid value=\"g-1 x\" />\n"
           "  <other value=\"o\" />\n </bios-header>\n <bios-params>\n" +
           groups + " </bios-params>\n</schema>\n";
}

std::string setting(const std::string& target, const std::string& name = "N")
{
    return "<setting target=\"" + target + "\" name=\"" + name +
           "\" type=\"enum\">\n<option name=\"Disabled\" value=\"0\" />\n"
           "<option name=\"Enabled\" value=\"1\" default=\"true\" />\n</setting>\n";
}

std::string group(const std::string& name, const std::string& content)
{
    return "<group name=\"" + name + "\">\n" + content + "</group>\n";
}

class BiosSchemaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_syslog.clear();
        bios_syslog_set_hook([](const char* message) { g_syslog.push_back(message); });
    }
    void TearDown() override { bios_syslog_set_hook(nullptr); }
};

TEST_F(BiosSchemaTest, ReadsGroupsSettingsAndOptions)
{
    const std::string n99(99, 'n');
    const std::string values =
        "<setting target=\"Values\" name=\"V\">\n<option name=\"a\" value=\"12\" />\n<option name=\"b\" value=\"\" />\n"
        "<option name=\"c\" value=\"1a\" />\n<option name=\"d\" value=\"-1\" />\n<option name=\"e\" value=\"7\" "
        "isdefault />\n<option name=\"f\" value=\"000000000000000000000000000000000042\" />\n</setting>\n";
    EXPECT_EQ("g-1",
              readSchema(schema(group("Main", setting("QuietBoot", "Quiet Boot") + setting("Two words", "First") +
                                                  setting("Dup", "Old") + setting("Dup") +
                                                  setting(std::string(150, 'n'), std::string(150, 'n'))) +
                                group("Advanced", "<subgroup name=\"CPU\">\n" + setting("Turbo") +
                                                      "</subgroup>\n<subgroup name=\"Memory\">\n" +
                                                      setting("Numa", "NUMA") + "</subgroup>\n") +
                                group("Server Management", values))));
    // Target tokens end at a blank, a repeated one replaces the earlier, texts
    // are cut to 99 characters, option values to 27 (the 42 is lost); a value
    // that is not all digits is 255.
    const std::string onOff = "(Disabled:0 Enabled:1* ) ";
    EXPECT_EQ("Dup=N" + onOff + "QuietBoot=Quiet Boot" + onOff + "Two=First" + onOff + n99 + "=" + n99 + onOff +
                  "| Numa=NUMA" + onOff + "Turbo=N" + onOff + "| Values=V(a:12 b:0 c:255 d:255 e:7* f:0 ) ",
              dump(true));
    EXPECT_TRUE(g_syslog.empty());
}

TEST_F(BiosSchemaTest, DeviatingSchemasKeepWhatWasReadBefore)
{
    const std::string main = group("Main", setting("A")), server = group("Server Management", setting("D"));
    // schema, GUID, ids read, "Important - hitting this else!" logged
    const std::tuple<std::string, const char*, const char*, bool> cases[] = {
        {schema(main).substr(schema(main).find('\n') + 1), "-", "| | ", false},  // no declaration
        {schema(main + group("Other", setting("X")) + server), "g-1", "A | | ", true},
        {schema(main + group("Advanced", setting("C")) + server), "g-1", "A | | ", false},  // no subgroup
        {schema(main).substr(0, schema(main).find("</bios-header")), "-", "| | ", false},
        {"<?xml?><schema><bios-header><id value=\"1\" /></bios-header><bios-params>" + main, "-", "A | | ", false},
        {"", "-", "| | ", false},
        {schema(group("Main", "") + group("Advanced", "") + server), "g-1", "| | D ", false},
    };
    for (const auto& [text, guid, ids, logsElse] : cases) {
        g_syslog.clear();
        EXPECT_EQ(guid, readSchema(text)) << text;
        EXPECT_EQ(ids, dump(false)) << text;
        EXPECT_EQ(logsElse ? std::vector<std::string>{"Important - hitting this else!\n"} : std::vector<std::string>{},
                  g_syslog);
    }
}

TEST_F(BiosSchemaTest, SimulatedSchemaAndEveryTruncation)
{
    TestRoot root(true);
    const std::string text = root.readFile("/etc/Schema_updated.xml");
    readSchema(text);
    EXPECT_EQ((std::vector<size_t>{6, 25, 10}),
              (std::vector<size_t>{tokens(0).size(), tokens(1).size(), tokens(2).size()}));
    const tokenInfo* cstate = tokens(1).at("PackageCStateLimit");
    EXPECT_EQ("Package C State Limit 0 7 1", cstate->settingName + " " +
                                                 std::to_string(cstate->options.at("C0 C1 State").isDefault) + " " +
                                                 std::to_string(cstate->options.at("No Limit").value) + " " +
                                                 std::to_string(cstate->options.at("C6 Retention").isDefault));
    // Every prefix of the schema reads without fault and never yields more.
    for (size_t n = 0; n < text.size(); n += 7) {
        readSchema(text.substr(0, n));
        ASSERT_LE(tokens(0).size(), 6u) << n;
    }
}

TEST_F(BiosSchemaTest, TokenDocuments)
{
    const std::pair<std::string, std::string> cases[] = {
        {"<?xml version=\"1.0\" ?>\n<bios-params>\n<A value=\"Power Off\" />\n<B value=\"Power Off\" "
         "/>\n</bios-params>\n",
         "A=Power B=Power Off "},  // the first value stops at a blank, later ones do not
        {"", ""},
        {"<bios-params>\n</bios-params>\n", ""},
        {"<?xml?><params></params>", ""},
        {"<?xml?><bios-params> </bios-params> ", ""},
        {"<?xml?><bios-params><A value=\"1\" /><B value=\"tw", "A=1 "},
        {"<?xml?><bios-params><" + std::string(120, 'N') + " value=\"" + std::string(120, 'v') + "\" /></bios-params>",
         std::string(99, 'N') + "=" + std::string(99, 'v') + " "},
    };
    for (const auto& [text, expected] : cases) {
        std::string read;
        FILE* f = memoryFile(text);
        char name[kBiosXmlBufferSize], value[kBiosXmlBufferSize];
        if (getFirstToken(f, name, value)) {  // the store reads on when the first token is missing
            read += std::string(name) + "=" + value + " ";
        }
        while (getNextToken(f, name, value)) {
            read += std::string(name) + "=" + value + " ";
        }
        if (f != nullptr) {
            fclose(f);
        }
        EXPECT_EQ(expected, read) << text;
    }
}

}  // namespace
