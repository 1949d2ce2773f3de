// The BIOS token gatherer on the simulated root: start with and without "BiosTokenDataAvailable".
#include <gtest/gtest.h>

#include <string>

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
