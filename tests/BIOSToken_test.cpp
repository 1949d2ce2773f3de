// The BIOS token store: schema selection, the published files, the document
// for the BIOS and the values read from the BIOS's document.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "BIOSToken.h"
#include "MdrSim.h"
#include "TestRoot.h"
#include "aim_config.h"
#include "bios_util.h"
#include "mdr_region.h"

namespace {

std::vector<std::string> g_syslog;

const char kOnOff[] =
    "<option name=\"Disabled\" value=\"0\" />\n<option name=\"Enabled\" value=\"1\" default=\"true\" />\n";

std::string setting(const std::string& target, const std::string& name, const std::string& options = kOnOff)
{
    return "<setting target=\"" + target + "\" name=\"" + name + "\">\n" + options + "</setting>\n";
}

std::string schema(const std::string& main, const std::string& advanced = "", const std::string& server = "")
{
    return "<?xml version=\"1.0\"?>\n<schema>\n<bios-header>\n<guid value=\"g\" />\n</bios-header>\n"
           "<bios-params>\n<group name=\"Main\">\n" +
           main + "</group>\n<group name=\"Advanced\">\n<subgroup name=\"S\">\n" + advanced +
           "</subgroup>\n</group>\n<group name=\"Server Management\">\n" + server + "</group>\n</bios-params>\n";
}

// One entry of a property file as the command-line interface reads it.
std::string entry(char kind, const char* id, const char* name, const char* valid)
{
    char text[600];
    snprintf(text, sizeof text, "\n00  %c  %-32s  %-32s  %-64s  %s", kind, id, name, "validate", valid);
    return text;
}

const std::string kLayout =
    "++||+||" + std::string(32, '+') + "||" + std::string(32, '_') + "||" + std::string(64, '+') + "||...";
const std::string kHeader = kLayout + entry('K', "setupParams", "Set-up parameters", "").substr(0, 75);

class BIOSTokenTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root.makeDirs("/tmp/BiosTokens");
        root.makeDirs("/var/aim/props");
        mdrForgetUpdateCounter();
        bios_syslog_set_hook([](const char* message) { g_syslog.push_back(message); });
    }
    void TearDown() override { bios_syslog_set_hook(nullptr); }

    void loadSchema(const std::string& text)
    {
        root.writeFile("/etc/Schema_updated.xml", text);
        store->initializeMapsFromSchema();
    }

    TestRoot root;
    BIOSToken* store = BIOSToken::getBIOSTokenInstance();
};

TEST_F(BIOSTokenTest, PropertyAndValidValuesFiles)
{
    loadSchema(schema(setting("Watch", "A Display Name Longer Than Thirty-One Characters",
                              std::string(kOnOff) + "<option name=\"Power Off\" value=\"2\" />\n") +
                      setting("Baud", "Baud Rate", "<option name=\"9600\" value=\"0\" />\n")));
    store->writePropertyAndValidValuesFiles("/tmp/BiosTokens/p", "/tmp/BiosTokens/v", BIOS_TOKEN_MAIN);
    EXPECT_EQ(kHeader + entry('A', "Baud", "Baud Rate", "9600 ") +
                  entry('A', "Watch", "A Display Name Longer Than Thir", "Disabled Enabled* Power_Off "),
              root.readFile("/tmp/BiosTokens/p"));
    EXPECT_EQ("Baud 9600 \nWatch Disabled Enabled* Power_Off \n", root.readFile("/tmp/BiosTokens/v"));
    // An empty group keeps the layout line and the header entry.
    store->writePropertyAndValidValuesFiles("/tmp/BiosTokens/p", "/tmp/BiosTokens/v", BIOS_TOKEN_ADVANCED);
    EXPECT_EQ(kHeader, root.readFile("/tmp/BiosTokens/p"));
    EXPECT_TRUE(root.exists("/tmp/BiosTokens/v") && root.readFile("/tmp/BiosTokens/v").empty());
}

TEST_F(BIOSTokenTest, LongTextsAreCutAndBuffersStayWhole)
{
    std::string options, main;
    for (int i = 10; i < 70; ++i) {
        options += "<option name=\"" + std::to_string(i) + std::string(58, 'x') + "\" value=\"" +
                   std::to_string(100000 + i) + "\" />\n";
    }
    for (int i = 1000; i < 1200; ++i) {
        main += setting(std::string(80, 'T') + std::to_string(i), "t");
    }
    loadSchema(schema(setting("Many", "Many", options) + main));
    store->writePropertyAndValidValuesFiles("/tmp/BiosTokens/p", "/tmp/BiosTokens/v", BIOS_TOKEN_MAIN);
    std::string text = root.readFile("/tmp/BiosTokens/p").substr(kHeader.size());
    text = text.substr(0, text.find('\n', 1));
    // Each option name is cut to 49 characters, the whole text to 249.
    EXPECT_EQ(8u + 32 + 2 + 32 + 2 + 64 + 2 + 249, text.size());
    EXPECT_EQ("10" + std::string(47, 'x') + " 11" + std::string(47, 'x') + " ", text.substr(142, 100));
    EXPECT_EQ(5u + 249u + 1u, root.readFile("/tmp/BiosTokens/v").find('\n') + 1);  // identifier, blank, text
    store->createOnlyTokensFile();
    EXPECT_EQ(5u + 24 * 8, root.readFile("/tmp/BiosTokens/tokensAndValidValues.txt").find('\n'));  // 200 bytes
    EXPECT_LT(root.readFile("/tmp/BiosTokens/all_tokens.txt").size(), static_cast<size_t>(BIOSToken::kDocumentSize));
    // The document for the BIOS holds what fits and stays complete.
    ASSERT_FALSE(store->createAndInitializeBIOSTokenRWLock());
    g_syslog.clear();
    store->createBmcToBiosXmlData();
    std::string document = root.readFile("/tmp/BiosTokens/bmc_sent.xml");
    EXPECT_LT(document.size(), static_cast<size_t>(BIOSToken::kDocumentSize));
    EXPECT_EQ("</bios-params> ", document.substr(document.size() - 15));
    EXPECT_FALSE(g_syslog.empty());
    store->freeBiosTokenWriteData();
}

TEST_F(BIOSTokenTest, TokenListsAndDocumentForTheBios)
{
    loadSchema(schema(setting("A", "a") + setting("B", "b"), setting("C", "c"), setting("D", "d")));
    const std::string lines = "A :0 :1 \nB :0 :1 \nC :0 :1 \nD :0 :1 \n";
    for (const std::string& expected : {lines, lines + lines}) {  // the value list grows, the token list does not
        store->createOnlyTokensFile();
        EXPECT_EQ("A\nB\n#C\n#D\n", root.readFile("/tmp/BiosTokens/all_tokens.txt"));
        EXPECT_EQ(expected, root.readFile("/tmp/BiosTokens/tokensAndValidValues.txt"));
    }
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

TEST_F(BIOSTokenTest, SchemaSelectionByPlatform)
{
    // "/etc/product", a GPIO pin and its value, the schema afterwards
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"ruskel\n", "riser2_id_1", "0", "ruskel2"}, {"ruskel", "riser1_id_0", "1", "ruskel1"},
        {"dravon\n", "2u_chassis", "1", "dravon2"},  {"dravon\n", "2u_chassis", "0\n", "dravon1"},
        {"dravon\n", "2u_chassis", "x", "original"}, {"ruskel2\n", "riser2_id_1", "0", "original"},
    };
    for (const auto& [product, pin, value, expected] : cases) {
        TestRoot caseRoot;
        caseRoot.writeFile("/etc/product", product);
        caseRoot.writeFile(std::string("/proc/pellox/gpio/") + pin, value);
        caseRoot.writeFile("/etc/Schema_updated.xml", "original");
        for (const std::string variant : {"dravon1", "dravon2", "ruskel1", "ruskel2"}) {
            caseRoot.writeFile("/etc/Schema_updated_" + variant + ".xml", variant);
        }
        store->checkForDravonAndPointSchema();
        EXPECT_EQ(expected, caseRoot.readFile("/etc/Schema_updated.xml")) << product << pin << value;
        EXPECT_FALSE(caseRoot.exists("/etc/Schema_updated_" + std::string(expected) + ".xml"));  // moved, not copied
    }
}

TEST_F(BIOSTokenTest, ClassFoldersModesAndMissingTmp)
{
    TestRoot sim(true);
    sim.makeDirs("/var/aim/props");
    EXPECT_EQ(0, store->createBIOSTokenPropertyFiles());
    for (std::string dir : {"main", "advanced", "server-management"}) {
        struct stat property = {}, priv = {};
        stat(sim.path("/tmp/BiosTokens/" + dir + "/property").c_str(), &property);
        stat(sim.path("/tmp/BiosTokens/" + dir + "/cmd/priv").c_str(), &priv);
        EXPECT_EQ(0755u, property.st_mode & 0777) << dir;
        EXPECT_EQ(0777u, priv.st_mode & 0777) << dir;
    }
    // A second start finds the folder: it says so and goes on.
    g_syslog.clear();
    EXPECT_EQ(0, store->createBIOSTokenPropertyFiles());
    EXPECT_EQ(std::vector<std::string>{"Creating dir " + sim.path("/tmp/BiosTokens") + " failed\n"}, g_syslog);

    TestRoot bare;  // no "/tmp": the start fails
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
    ASSERT_TRUE(MdrSim::biosWrite(3, document + "</bios-params>\n"));
    EXPECT_TRUE(store->readBIOSTokenRegionAndGetValues(values, &count));
    ASSERT_EQ(BIOSToken::kMaxTokenValues, count);
    // The first value ends at its blank, later ones do not.
    EXPECT_EQ((std::vector<std::string>{"T0", "v", "T149", "v 149"}),
              (std::vector<std::string>{values[0].name, values[0].value, values[149].name, values[149].value}));
    for (int i = 0; i < count; ++i) {
        free(values[i].name);
        free(values[i].value);
    }
}

}  // namespace
