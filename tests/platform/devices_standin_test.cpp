// The SMBIOS disk call's calling convention, which no server test drives
// (the inventory tests drive the fault files, short output and the SDR and
// FRU record layouts): a buffer too small or missing is refused, and "short
// N" cuts the output to N bytes.
#include <gtest/gtest.h>

#include <unistd.h>

#include "TestRoot.h"
#include "smbios_devices.h"

TEST(DevicesStandIn, CapacityAndShortOutputOfTheDeviceCalls)
{
    TestRoot root(true);
    unsigned char out[SMBIOS_DISKS_SIZE];
    const struct {
        const char* call;
        int (*fn)(int*, int, const void*, void*);
        int size;
    } calls[] = {{"DisksInfoGet", DisksInfoGet, SMBIOS_DISKS_SIZE}};
    for (const auto& c : calls) {
        int length = 0;
        EXPECT_EQ(c.fn(&length, c.size - 1, nullptr, out), SMBIOS_DEV_CAPACITY) << c.call;
        EXPECT_EQ(c.fn(&length, c.size, nullptr, nullptr), SMBIOS_DEV_CAPACITY) << c.call;
        EXPECT_EQ(c.fn(&length, c.size, nullptr, out), 0) << c.call;
        EXPECT_EQ(length, c.size) << c.call;
        const std::string fault = std::string("/var/smbios/faults/") + c.call;
        root.writeFile(fault, "short 3");
        EXPECT_EQ(c.fn(&length, c.size, nullptr, out), 0) << c.call;
        EXPECT_EQ(length, 3) << c.call;
        unlink(root.path(fault).c_str());
    }
    // The TPM call fills one structure, the library's; none is refused.
    EXPECT_EQ(GetTPMInfo(nullptr), SMBIOS_DEV_CAPACITY);
}
