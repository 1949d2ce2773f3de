// The SMBIOS inventory stand-in: records packed from the host description
// byte for byte, capacity checks, fault files and count overrides.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "TestRoot.h"
#include "smbios_inventory.h"

namespace {

typedef int (*Call)(int*, int, const void*, void*);

const char kHost[] = R"({
  "version": 7,
  "processors": [{"socket": "CPU1", "threads": 40, "cores": 20, "status": "Populated, Enabled",
                  "family": "0123456789012345678901234567890123456789ABCD"}],
  "dimms": [{"name": "DIMM_A1"}, {"name": "DIMM_A2"}, {"name": "DIMM_B1"}],
  "pcie": [{"vendor": "0x8086", "device": 4489, "slot": "SlotID:3", "optionRom": 1}],
  "system": {"uuid": "00112233-4455-6677-8899-AABBCCDDEEFF"},
  "memoryStats": [{"id": 1, "temperature": "30 C"}, {"id": 2}, {"id": 1}],
  "counts": {"GetMacAddressItems": 5}
})";

class Smbios : public testing::Test {
protected:
    void SetUp() override { root.writeFile("/var/smbios/host.json", kHost); }

    // Runs a call with `capacity`; returns its result, the bytes in `out`.
    int run(Call call, int capacity, std::vector<unsigned char>& out, const void* input = nullptr, int inLength = 0)
    {
        out.assign(static_cast<size_t>(capacity), 0xEE);
        int length = inLength;
        int rc = call(&length, capacity, input, out.data());
        if (rc == 0) {
            out.resize(static_cast<size_t>(length));
        }
        return rc;
    }

    TestRoot root;
};

TEST_F(Smbios, PacksRecordsByteForByte)
{
    std::vector<unsigned char> out;
    ASSERT_EQ(0, run(GetCPUInfo, SMBIOS_CPU_RECORD_SIZE, out));
    ASSERT_EQ(static_cast<size_t>(SMBIOS_CPU_RECORD_SIZE), out.size());
    EXPECT_EQ(0, memcmp(out.data(), "CPU1\0\0", 6));
    EXPECT_EQ(40, out[172]);
    EXPECT_EQ(20, out[308]);
    // A family of 44 characters fills its field without a terminator.
    EXPECT_EQ('D', out[171]);
    EXPECT_EQ(0, memcmp(&out[128], "0123", 4));

    ASSERT_EQ(0, run(GetPCIeAdapters, SMBIOS_PCIE_RECORD_SIZE, out));
    const unsigned char ids[] = {0x80, 0x86, 0x11, 0x89};
    EXPECT_EQ(0, memcmp(out.data(), ids, sizeof ids));  // big-endian
    EXPECT_EQ(0, memcmp(&out[80], "SlotID:3", 9));
    EXPECT_EQ(1, out[208]);

    ASSERT_EQ(0, run(GetSystemInfo, SMBIOS_SYSTEM_RECORD_SIZE, out));
    EXPECT_EQ(0x00, out[SMBIOS_SYSTEM_UUID_OFFSET]);
    EXPECT_EQ(0x11, out[SMBIOS_SYSTEM_UUID_OFFSET + 1]);
    EXPECT_EQ(0xFF, out[SMBIOS_SYSTEM_UUID_OFFSET + 15]);

    ASSERT_EQ(0, run(GetSmBiosDataVersion, 1, out));
    EXPECT_EQ(std::vector<unsigned char>{7}, out);
}

TEST_F(Smbios, CountsAndRanges)
{
    const struct {
        Call call;
        int expected;
    } counts[] = {{GetCPUItems, 1}, {GetMemoryItems, 3}, {GetPCIeItems, 1}, {GetMacAddressItems, 5}};
    for (const auto& c : counts) {
        std::vector<unsigned char> out;
        ASSERT_EQ(0, run(c.call, 4, out));
        int value = 0;
        memcpy(&value, out.data(), 4);
        EXPECT_EQ(c.expected, value);
    }
    // Memory detail from index 1, two records.
    std::vector<unsigned char> out;
    int range[2] = {1, 2};
    ASSERT_EQ(0, run(GetMemoryDetail, 2 * SMBIOS_DIMM_DETAIL_RECORD_SIZE, out, range, 8));
    ASSERT_EQ(static_cast<size_t>(2 * SMBIOS_DIMM_DETAIL_RECORD_SIZE), out.size());
    EXPECT_EQ(0, memcmp(out.data(), "DIMM_A2", 8));
    // Statistics: only the requested id; as many records as fit.
    unsigned char id1[2] = {1, 0};
    ASSERT_EQ(0, run(GetMemoryStats, SMBIOS_MEMORY_STATS_SIZE, out, id1, 2));
    EXPECT_EQ(200u, out.size());
    ASSERT_EQ(0, run(GetMemoryStats, 250, out, nullptr, 0));
    EXPECT_EQ(200u, out.size());
}

TEST_F(Smbios, CapacityFaultsAndMissingHost)
{
    std::vector<unsigned char> out;
    // Too small for the records: the call fails.
    EXPECT_NE(0, run(GetMemoryInfo, 3 * SMBIOS_DIMM_RECORD_SIZE - 1, out));
    EXPECT_NE(0, run(GetBootOrderDevices, SMBIOS_BOOT_ORDER_SIZE - 1, out));
    // Fault files: empty or "fail" fail the call, "short n" cuts it.
    const struct {
        const char* content;
        int rc;
        size_t length;
    } faults[] = {{"", -1, 0}, {"fail\n", -1, 0}, {"short 100\n", 0, 100}, {"short 0", 0, 0}, {"short 9999", 0, 768}};
    for (const auto& f : faults) {
        root.writeFile("/var/smbios/faults/GetMemoryInfo", f.content);
        int rc = run(GetMemoryInfo, 3 * SMBIOS_DIMM_RECORD_SIZE, out);
        EXPECT_EQ(f.rc == 0, rc == 0) << f.content;
        if (rc == 0) {
            EXPECT_EQ(f.length, out.size()) << f.content;
        }
        // Other calls are untouched.
        EXPECT_EQ(0, run(GetCPUItems, 4, out));
    }
    root.writeFile("/var/smbios/host.json", "{ not json");
    EXPECT_NE(0, run(GetSmBiosDataVersion, 1, out));
    EXPECT_EQ(0, run(GetCPUItems, 4, out));  // no host: no processors
    EXPECT_EQ(0, out[0]);
}

}  // namespace
