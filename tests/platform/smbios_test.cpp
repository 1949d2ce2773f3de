// The SMBIOS inventory stand-in, where the server's tests do not reach it:
// detail ranges and statistics cut to the capacity (the packed records,
// fault files and capacity checks are driven by the inventory tests).
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
  "dimms": [{"name": "DIMM_A1"}, {"name": "DIMM_A2"}, {"name": "DIMM_B1"}],
  "memoryStats": [{"id": 1, "temperature": "30 C"}, {"id": 2}, {"id": 1}]
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

TEST_F(Smbios, RangesAndStatistics)
{
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

}  // namespace
