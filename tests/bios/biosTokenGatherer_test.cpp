// The BIOS token gatherer on the simulated root: start with and without "BiosTokenDataAvailable".
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "MdrSim.h"
#include "TestRoot.h"
#include "aim_config.h"
#include "biosTokenGatherer.h"
#include "mdr_region.h"

namespace {

std::string property(const char* name)
{
    char value[256] = "";
    return aim_config_get_str(name, value) ? value : "<unset>";
}

TEST(BiosTokenGatherer, StartSendsTheValuesOnlyWhenDataIsAvailable)
{
    for (bool available : {false, true}) {
        SCOPED_TRACE(available);
        TestRoot root(true);
        root.makeDirs("/var/aim/props");
        mdrForgetUpdateCounter();
        // The BIOS reports one token; the controller holds another value for it.
        ASSERT_TRUE(MdrSim::biosWrite(3, "<?xml?><bios-params><QuietBoot value='Enabled' /></bios-params>"));
        ASSERT_TRUE(aim_config_set_str("QuietBoot", "Disabled", 1) && aim_config_set_str("BaudRate", "57600", 1));
        ASSERT_TRUE(!available || aim_config_set_bool("BiosTokenDataAvailable", true, 1));
        ASSERT_EQ(0, biosTokenGathererStart());
        EXPECT_EQ("Enabled", property("QuietBoot"));
        EXPECT_EQ(available ? "1" : "0", property("BiosTokenDataAvailable"));  // unset: created as false
        std::string sent;
        MdrSim::Region region2;
        ASSERT_TRUE(MdrSim::readData(2, sent) && MdrSim::status(2, region2));
        EXPECT_EQ(available ? 1 : 0, region2.counter);
        if (available) {
            // The BIOS's value was applied before the document was built.
            EXPECT_NE(std::string::npos, sent.find("<QuietBoot value=\"1\" />")) << sent;
            EXPECT_NE(std::string::npos, sent.find("<BaudRate value=\"3\" />")) << sent;
        }
        EXPECT_EQ(1, biosTokenGathererPoll());  // the first poll sees the region's counter
        EXPECT_EQ(0, biosTokenGathererPoll());
        EXPECT_EQ("1", property("BiosTokenDataAvailable"));
    }
}

}  // namespace

namespace {

// What a document from the BIOS may change: only a well-formed document, and
// only tokens that the schema defines. Every command line goes through the
// safe-execution runner; syslog lines are mirrored under the root.
TEST(BiosTokenGatherer, OnlyWellFormedDocumentsAndSchemaTokensApply)
{
    // document, QuietBoot afterwards, pm_bool_ssh_enabled afterwards
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"<?xml?><bios-params><QuietBoot value='Enabled' /><pm_bool_ssh_enabled value='Nope' /></bios-params>",
         "Enabled", "1"},
        {"<bios-params><QuietBoot value='Enabled' /></bios-params>", "Disabled", "1"},  // no declaration
        {"<?xml?><params><QuietBoot value='Enabled' /></params>", "Disabled", "1"},
        {"<?xml?><bios-params></bios-params><QuietBoot value='Enabled' />", "Disabled", "1"},
    };
    for (const auto& [document, quietBoot, ssh] : cases) {
        SCOPED_TRACE(document);
        TestRoot root(true);
        root.makeDirs("/var/aim/props");
        mdrForgetUpdateCounter();
        ASSERT_TRUE(MdrSim::biosWrite(3, document));
        ASSERT_TRUE(aim_config_set_str("QuietBoot", "Disabled", 1) &&
                    aim_config_set_str("pm_bool_ssh_enabled", "1", 1));
        ASSERT_EQ(0, biosTokenGathererStart());
        EXPECT_EQ(quietBoot, property("QuietBoot"));
        EXPECT_EQ(ssh, property("pm_bool_ssh_enabled"));
        // The document's quotes are rewritten by commands the runner records.
        EXPECT_NE(std::string::npos, root.readFile("/var/safeexec/commands").find("mv "))
            << root.readFile("/var/safeexec/commands");
        if (std::string(ssh) == "1" && std::string(quietBoot) == "Enabled") {
            EXPECT_NE(std::string::npos,
                      root.readFile("/var/log/syslog").find("pm_bool_ssh_enabled is not in the BIOS schema, ignored"))
                << root.readFile("/var/log/syslog");
        }
    }
}

}  // namespace
