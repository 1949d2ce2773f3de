// The BIOS token store: schema selection, the published files, the document
// for the BIOS and the values read from the BIOS's document.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "BIOSToken.h"
#include "MdrSim.h"
#include "TestRoot.h"
#include "aim_config.h"
#include "bios_util.h"
#include "mdr_region.h"

namespace {

std::vector<std::string> g_syslog;
void captureSyslog(const char* message)
{
    g_syslog.push_back(message);
}

const char kOnOff[] =
    "<option name=\"Disabled\" value=\"0\" />\n<option name=\"Enabled\" value=\"1\" default=\"true\" />\n";

std::string setting(const std::string& target, const std::string& name, const std::string& options = kOnOff)
{
    return "<setting target=\"" + target + "\" name=\"" + name + "\">\n" + options + "</setting>\n";
}

std::string schema(const std::string& main, const std::string& advanced, const std::string& server)
{
    return "<?xml version=\"1.0\"?>\n<schema>\n<bios-header>\n<guid value=\"g\" />\n</bios-header>\n"
           "<bios-params>\n<group name=\"Main\">\n" +
           main + "</group>\n<group name=\"Advanced\">\n<subgroup name=\"S\">\n" + advanced +
           "</subgroup>\n</group>\n<group name=\"Server Management\">\n" + server + "</group>\n</bios-params>\n";
}

std::string padded(const std::string& text, size_t width)
{
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

const std::string kLayout =
    "++||+||" + std::string(32, '+') + "||" + std::string(32, '_') + "||" + std::string(64, '+') + "||...";
const std::string kHeaderEntry = "\n00  K  " + padded("setupParams", 32) + "  " + padded("Set-up parameters", 32) + " ";

class BIOSTokenTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root.makeDirs("/tmp/BiosTokens");
        root.makeDirs("/var/aim/props");
        mdrForgetUpdateCounter();
        g_syslog.clear();
        bios_syslog_set_hook(captureSyslog);
        store = BIOSToken::getBIOSTokenInstance();
    }
    void TearDown() override { bios_syslog_set_hook(nullptr); }

    void loadSchema(const std::string& text)
    {
        root.writeFile("/etc/Schema_updated.xml", text);
        store->initializeMapsFromSchema();
    }

    TestRoot root;
    BIOSToken* store = nullptr;
};

TEST_F(BIOSTokenTest, PropertyAndValidValuesFiles)
{
    loadSchema(schema(setting("Watch", "A Display Name Longer Than Thirty-One Characters",
                              std::string(kOnOff) + "<option name=\"Power Off\" value=\"2\" />\n") +
                          setting("Baud", "Baud Rate", "<option name=\"9600\" value=\"0\" />\n"),
                      "", ""));
    store->writePropertyAndValidValuesFiles("/tmp/BiosTokens/p", "/tmp/BiosTokens/v", BIOS_TOKEN_MAIN);
    const std::string watchValid = "Disabled Enabled* Power_Off ";
    EXPECT_EQ(kLayout + kHeaderEntry + "\n00  A  " + padded("Baud", 32) + "  " + padded("Baud Rate", 32) + "  " +
                  padded("validate", 64) + "  9600 " + "\n00  A  " + padded("Watch", 32) + "  " +
                  "A Display Name Longer Than Thir " + "  " + padded("validate", 64) + "  " + watchValid,
              root.readFile("/tmp/BiosTokens/p"));
    EXPECT_EQ("Baud 9600 \nWatch " + watchValid + "\n", root.readFile("/tmp/BiosTokens/v"));

    // An empty group keeps the layout line and the header entry.
    store->writePropertyAndValidValuesFiles("/tmp/BiosTokens/p", "/tmp/BiosTokens/v", BIOS_TOKEN_ADVANCED);
    EXPECT_EQ(kLayout + kHeaderEntry, root.readFile("/tmp/BiosTokens/p"));
    EXPECT_TRUE(root.exists("/tmp/BiosTokens/v"));
    EXPECT_EQ("", root.readFile("/tmp/BiosTokens/v"));
}

TEST_F(BIOSTokenTest, LongOptionListsAreCut)
{
    std::string options;
    for (int i = 0; i < 60; ++i) {
        char number[4];
        snprintf(number, sizeof number, "%02d", i);
        options += "<option name=\"" + std::string(number) + std::string(58, 'x') + "\" value=\"" +
                   std::to_string(100000 + i) + "\" />\n";
    }
    loadSchema(schema(setting("Many", "Many", options), "", ""));
    store->writePropertyAndValidValuesFiles("/tmp/BiosTokens/p", "/tmp/BiosTokens/v", BIOS_TOKEN_MAIN);
    std::string entry = root.readFile("/tmp/BiosTokens/p").substr(kLayout.size() + kHeaderEntry.size());
    // Each option name is cut to 49 characters, the whole text to 249.
    EXPECT_EQ(8u + 32 + 2 + 32 + 2 + 64 + 2 + 249, entry.size());
    EXPECT_EQ("00" + std::string(47, 'x') + " 01" + std::string(47, 'x') + " ",
              entry.substr(entry.find("validate") + 66, 100));
    std::string line = root.readFile("/tmp/BiosTokens/v");
    EXPECT_EQ(5u + 249u + 1u, line.size());  // identifier, blank, 249 characters, line feed

    store->createOnlyTokensFile();
    std::string values = root.readFile("/tmp/BiosTokens/tokensAndValidValues.txt");
    EXPECT_EQ(5u + 24 * 8 + 1, values.size());  // as many ":%d " as fit in 200 bytes
    EXPECT_EQ('\n', values.back());
}

TEST_F(BIOSTokenTest, TokenListFiles)
{
    loadSchema(schema(setting("A", "a") + setting("B", "b"), setting("C", "c"), setting("D", "d")));
    store->createOnlyTokensFile();
    EXPECT_EQ("A\nB\n#C\n#D\n", root.readFile("/tmp/BiosTokens/all_tokens.txt"));
    const std::string lines = "A :0 :1 \nB :0 :1 \nC :0 :1 \nD :0 :1 \n";
    EXPECT_EQ(lines, root.readFile("/tmp/BiosTokens/tokensAndValidValues.txt"));
    store->createOnlyTokensFile();
    EXPECT_EQ(lines + lines, root.readFile("/tmp/BiosTokens/tokensAndValidValues.txt"));
    EXPECT_EQ("A\nB\n#C\n#D\n", root.readFile("/tmp/BiosTokens/all_tokens.txt"));
}

TEST_F(BIOSTokenTest, DocumentForTheBios)
{
    loadSchema(schema(setting("A", "a") + setting("B", "b"), setting("C", "c"), setting("D", "d")));
    ASSERT_FALSE(store->createAndInitializeBIOSTokenRWLock());
    ASSERT_TRUE(aim_config_set_str("A", "Enabled", 1));
    ASSERT_TRUE(aim_config_set_str("B", "Nothing of the kind", 1));
    root.writeFile("/var/aim/props/D", "garbage");  // unreadable property
    EXPECT_TRUE(store->createBmcToBiosXmlData());
    EXPECT_EQ(
        "<?xml version='1.0' ?> <bios-params> <A value=\"1\" /><B value=\"255\" /><C value=\"255\" />"
        "<D value=\"255\" /></bios-params> ",
        root.readFile("/tmp/BiosTokens/bmc_sent.xml"));
    store->freeBiosTokenWriteData();
}

TEST_F(BIOSTokenTest, OverfullDocumentStaysWhole)
{
    std::string main;
    for (int i = 0; i < 200; ++i) {
        main += setting(std::string(80, 'T') + std::to_string(1000 + i), "t");
    }
    loadSchema(schema(main, "", ""));
    ASSERT_FALSE(store->createAndInitializeBIOSTokenRWLock());
    store->createBmcToBiosXmlData();
    std::string document = root.readFile("/tmp/BiosTokens/bmc_sent.xml");
    EXPECT_LT(document.size(), static_cast<size_t>(BIOSToken::kDocumentSize));
    EXPECT_EQ("</bios-params> ", document.substr(document.size() - 15));
    EXPECT_FALSE(g_syslog.empty());
    store->createOnlyTokensFile();
    EXPECT_LT(root.readFile("/tmp/BiosTokens/all_tokens.txt").size(), static_cast<size_t>(BIOSToken::kDocumentSize));
    store->freeBiosTokenWriteData();
}

TEST_F(BIOSTokenTest, DefaultsAndUnknownTypes)
{
    loadSchema(schema(setting("A", "a") + setting("NoDefault", "n", "<option name=\"X\" value=\"1\" />\n"), "", ""));
    ASSERT_TRUE(aim_config_set_str("NoDefault", "kept", 1));
    EXPECT_TRUE(store->getTokenMap(static_cast<BIOSTokenType>(3)).empty());
    store->updateToDefaults(static_cast<BIOSTokenType>(3));
    char value[256] = "";
    EXPECT_FALSE(aim_config_get_str("A", value));
    store->updateToDefaults(BIOS_TOKEN_MAIN);
    EXPECT_TRUE(aim_config_get_str("A", value));
    EXPECT_STREQ("Enabled", value);
    EXPECT_TRUE(aim_config_get_str("NoDefault", value));
    EXPECT_STREQ("kept", value);

    g_syslog.clear();
    store->printMap(BIOS_TOKEN_MAIN);
    ASSERT_EQ(6u, g_syslog.size());
    EXPECT_EQ("This is size of map - 2\n", g_syslog[0]);
    EXPECT_EQ("TargetToken: A  SettingName: a\n", g_syslog[1]);
    EXPECT_EQ("Option:Disabled Value:0 isDefault:0\n", g_syslog[2]);
}

TEST_F(BIOSTokenTest, SchemaSelectionByPlatform)
{
    const struct {
        const char* product;
        std::vector<std::pair<const char*, const char*>> pins;
        const char* expected;  // variant that ends as the schema
        const char* removed;   // variant deleted (or null)
    } cases[] = {
        {"ruskel\n", {{"riser2_id_1", "0"}}, "ruskel2", "ruskel1"},
        {"ruskel\n", {{"riser1_id_0", "1"}, {"riser2_id_0", "1"}}, "ruskel1", "ruskel2"},
        {"ruskel", {}, "ruskel1", "ruskel2"},
        {"dravon\n", {{"2u_chassis", "1"}}, "dravon2", "dravon1"},
        {"dravon\n", {{"2u_chassis", "0\n"}}, "dravon1", "dravon2"},
        {"dravon\n", {{"2u_chassis", "x"}}, "original", nullptr},
        {"dravon\n", {}, "original", nullptr},
        {"ruskel2\n", {{"riser2_id_1", "0"}}, "original", nullptr},
        {nullptr, {}, "original", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.product != nullptr ? c.product : "no product");
        TestRoot caseRoot;
        if (c.product != nullptr) {
            caseRoot.writeFile("/etc/product", c.product);
        }
        for (const auto& pin : c.pins) {
            caseRoot.writeFile(std::string("/proc/pellox/gpio/") + pin.first, pin.second);
        }
        caseRoot.writeFile("/etc/Schema_updated.xml", "original");
        for (const char* variant : {"dravon1", "dravon2", "ruskel1", "ruskel2"}) {
            caseRoot.writeFile(std::string("/etc/Schema_updated_") + variant + ".xml", variant);
        }
        store->checkForDravonAndPointSchema();
        EXPECT_EQ(c.expected, caseRoot.readFile("/etc/Schema_updated.xml"));
        if (c.removed != nullptr) {
            EXPECT_FALSE(caseRoot.exists(std::string("/etc/Schema_updated_") + c.removed + ".xml"));
            EXPECT_FALSE(caseRoot.exists(std::string("/etc/Schema_updated_") + c.expected + ".xml"));
        }
    }
}

TEST_F(BIOSTokenTest, ClassFoldersAndModes)
{
    TestRoot sim(true);
    sim.makeDirs("/var/aim/props");
    EXPECT_EQ(0, store->createBIOSTokenPropertyFiles());
    for (const char* group : {"main", "advanced", "server-management"}) {
        SCOPED_TRACE(group);
        std::string dir = std::string("/tmp/BiosTokens/") + group;
        struct stat st;
        ASSERT_EQ(0, stat(sim.path(dir + "/property").c_str(), &st));
        EXPECT_EQ(0755u, st.st_mode & 0777);
        ASSERT_EQ(0, stat(sim.path(dir + "/cmd/priv").c_str(), &st));
        EXPECT_EQ(0777u, st.st_mode & 0777);
        EXPECT_TRUE(sim.exists(dir + "/cmd/validvalues"));
        EXPECT_TRUE(sim.exists(dir + "/help"));
    }
    // A second start finds the folder: it says so and goes on.
    g_syslog.clear();
    EXPECT_EQ(0, store->createBIOSTokenPropertyFiles());
    EXPECT_EQ(std::vector<std::string>{"Creating dir " + sim.path("/tmp/BiosTokens") + " failed\n"}, g_syslog);
}

TEST_F(BIOSTokenTest, MissingTmpFailsTheStart)
{
    TestRoot bare;
    g_syslog.clear();
    EXPECT_EQ(ENOENT, store->createBIOSTokenPropertyFiles());
    EXPECT_EQ((std::vector<std::string>{"Creating dir " + bare.path("/tmp/BiosTokens") + " failed\n",
                                        "mkdir " + bare.path("/tmp/BiosTokens") + " : FAILED: errno = 2\n"}),
              g_syslog);
    EXPECT_EQ(-1, store->initialize());
    EXPECT_TRUE(store->getBIOSTokenPSLockForReading());  // no lock file: every lock request fails
}

TEST_F(BIOSTokenTest, ValuesFromTheBiosDocument)
{
    tokenVal values[BIOSToken::kMaxTokenValues];
    int count = 7;
    EXPECT_FALSE(store->readBIOSTokenRegionAndGetValues(nullptr, &count));
    EXPECT_FALSE(store->readBIOSTokenRegionAndGetValues(values, &count));  // no region, no earlier document
    EXPECT_EQ(0, count);

    std::string document = "<?xml version='1.0' ?>\n<bios-params>\n";
    for (int i = 0; i < 200; ++i) {
        document += "<T" + std::to_string(i) + " value='v " + std::to_string(i) + "' />\n";
    }
    document += "</bios-params>\n";
    ASSERT_TRUE(MdrSim::biosWrite(3, document));
    EXPECT_TRUE(store->readBIOSTokenRegionAndGetValues(values, &count));
    ASSERT_EQ(BIOSToken::kMaxTokenValues, count);
    EXPECT_STREQ("T0", values[0].name);
    EXPECT_STREQ("v", values[0].value);  // the first value ends at its blank
    EXPECT_STREQ("T149", values[149].name);
    EXPECT_STREQ("v 149", values[149].value);
    for (int i = 0; i < count; ++i) {
        free(values[i].name);
        free(values[i].value);
    }
}

}  // namespace
