// The BIOS token store: schema selection, the published files, the document for the BIOS.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <string>
#include <tuple>

#include "BIOSToken.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {

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
    }

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

TEST_F(BIOSTokenTest, TokenListsAndDocumentForTheBios)
{
    loadSchema(schema(setting("A", "a") + setting("B", "b"), setting("C", "c"), setting("D", "d")));
    store->createOnlyTokensFile();
    store->createOnlyTokensFile();  // the value list grows, the token list does not
    EXPECT_EQ("A\nB\n#C\n#D\n", root.readFile("/tmp/BiosTokens/all_tokens.txt"));
    const std::string lines = "A :0 :1 \nB :0 :1 \nC :0 :1 \nD :0 :1 \n";
    EXPECT_EQ(lines + lines, root.readFile("/tmp/BiosTokens/tokensAndValidValues.txt"));
    ASSERT_FALSE(store->createAndInitializeBIOSTokenRWLock());
    ASSERT_TRUE(aim_config_set_str("A", "Enabled", 1));
    ASSERT_TRUE(aim_config_set_str("B", "Nothing of the kind", 1));
    root.writeFile("/var/aim/props/D", "garbage");  // unreadable property
    EXPECT_TRUE(store->createBmcToBiosXmlData());
    EXPECT_EQ(
        "<?xml version='1.0' ?> <bios-params> <A value=\"1\" /><B value=\"255\" /><C value=\"255\" />"
        "<D value=\"255\" /></bios-params> ",
        root.readFile("/tmp/BiosTokens/bmc_sent.xml"));
    // Tokens that do not fit are left out; the document stays complete.
    std::string main;
    for (int i = 1000; i < 1200; ++i) {
        main += setting(std::string(80, 'T') + std::to_string(i), "t");
    }
    loadSchema(schema(main));
    store->createBmcToBiosXmlData();
    std::string document = root.readFile("/tmp/BiosTokens/bmc_sent.xml");
    EXPECT_LT(document.size(), static_cast<size_t>(BIOSToken::kDocumentSize));
    EXPECT_EQ("</bios-params> ", document.substr(document.size() - 15));
    store->freeBiosTokenWriteData();
}

TEST_F(BIOSTokenTest, SchemaSelectionByPlatform)
{
    // "/etc/product", a GPIO pin and its value, the schema afterwards
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"ruskel\n", "riser2_id_1", "0", "ruskel2"},
        {"dravon\n", "2u_chassis", "0\n", "dravon1"},
        {"dravon\n", "2u_chassis", "x", "original"},
    };
    for (const auto& [product, pin, value, expected] : cases) {
        TestRoot caseRoot;
        caseRoot.writeFile("/etc/product", product);
        caseRoot.writeFile(std::string("/proc/pellox/gpio/") + pin, value);
        for (const std::string variant : {"", "_dravon1", "_ruskel2"}) {
            caseRoot.writeFile("/etc/Schema_updated" + variant + ".xml",
                               variant.empty() ? "original" : variant.substr(1));
        }
        store->checkForDravonAndPointSchema();
        EXPECT_EQ(expected, caseRoot.readFile("/etc/Schema_updated.xml")) << product << pin << value;
        EXPECT_FALSE(caseRoot.exists("/etc/Schema_updated_" + std::string(expected) + ".xml"));  // moved, not copied
    }
}

TEST_F(BIOSTokenTest, ExistingFolderOrMissingTmp)
{
    EXPECT_EQ(0, store->createBIOSTokenPropertyFiles());  // the folder exists already: it goes on
    TestRoot bare;                                        // no "/tmp": the start fails
    EXPECT_EQ(ENOENT, store->createBIOSTokenPropertyFiles());
    EXPECT_EQ(-1, store->initialize());
    EXPECT_TRUE(store->getBIOSTokenPSLockForReading());  // no lock file: every lock request fails
}

// A symbolic link planted under the lock file's or the folder's name in /tmp
// is refused: nothing is written through it.
TEST_F(BIOSTokenTest, PlantedLinksAreRefused)
{
    const std::string target = root.writeFile("/etc/target/kept", "kept\n");
    for (const char* name : {"/tmp/biosTokenLock", "/tmp/BiosTokens"}) {
        rmdir(root.path("/tmp/BiosTokens").c_str());
        unlink(root.path("/tmp/BiosTokens").c_str());
        unlink(root.path("/tmp/biosTokenLock").c_str());
        const std::string link = std::string(name) == "/tmp/BiosTokens" ? root.path("/etc/target") : target;
        ASSERT_EQ(0, symlink(link.c_str(), root.path(name).c_str())) << name;
        EXPECT_EQ(BIOSToken::kPlantedLink, store->initialize()) << name;
        EXPECT_EQ("kept\n", root.readFile("/etc/target/kept")) << name;
        EXPECT_FALSE(root.exists("/etc/target/main")) << name;
    }
}

}  // namespace
