// The SMBIOS disk call's calling convention, which no server test drives
// (the inventory tests drive the fault files, short output and the SDR and
// FRU record layouts): a buffer too small or missing is refused, and "short
// N" cuts the output to N bytes.
#include <gtest/gtest.h>

#include "TestRoot.h"
#include "smbios_devices.h"

TEST(DevicesStandIn, CapacityAndShortOutputOfTheDeviceCalls)
{
    TestRoot root(true);
    unsigned char out[SMBIOS_DISKS_SIZE];
    int length = 0;
    EXPECT_EQ(DisksInfoGet(&length, SMBIOS_DISKS_SIZE - 1, nullptr, out), SMBIOS_DEV_CAPACITY);
    EXPECT_EQ(DisksInfoGet(&length, SMBIOS_DISKS_SIZE, nullptr, nullptr), SMBIOS_DEV_CAPACITY);
    EXPECT_EQ(DisksInfoGet(&length, SMBIOS_DISKS_SIZE, nullptr, out), 0);
    EXPECT_EQ(length, SMBIOS_DISKS_SIZE);
    root.writeFile("/var/smbios/faults/DisksInfoGet", "short 3");
    EXPECT_EQ(DisksInfoGet(&length, SMBIOS_DISKS_SIZE, nullptr, out), 0);
    EXPECT_EQ(length, 3);
    // The TPM call fills one structure, the library's; none is refused.
    EXPECT_EQ(GetTPMInfo(nullptr), SMBIOS_DEV_CAPACITY);
}
