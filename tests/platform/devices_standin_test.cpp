// The SDR, FRU and device-call stand-ins: the calling convention's capacity
// checks, the fault files, short output and the record layout.
#include <gtest/gtest.h>

#include <cstring>

#include "TestRoot.h"
#include "fru.h"
#include "sdr.h"
#include "smbios_devices.h"

TEST(DevicesStandIn, CapacityAndFaultsOfTheDeviceCalls)
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
        const struct {
            const char* content;
            int result;
            int length;
        } faults[] = {{"", SMBIOS_DEV_FAILED, 0}, {"fail", SMBIOS_DEV_FAILED, 0}, {"short 3", 0, 3}};
        for (const auto& f : faults) {
            root.writeFile(fault, f.content);
            length = 99;
            EXPECT_EQ(c.fn(&length, c.size, nullptr, out), f.result) << c.call << " " << f.content;
            EXPECT_EQ(length, f.length) << c.call << " " << f.content;
        }
        unlink(root.path(fault).c_str());
    }
    // The simulated server: three disk slots, one degraded disk; a present TPM.
    int length = 0;
    ASSERT_EQ(DisksInfoGet(&length, sizeof out, nullptr, out), 0);
    EXPECT_EQ(out[0] | out[1] << 8, 3);
    EXPECT_EQ(out[8], SMBIOS_DISK_SLOT | SMBIOS_DISK_PRESENT | SMBIOS_DISK_DEGRADED);
    smbios_tpm_info_t tpm = {};
    ASSERT_EQ(GetTPMInfo(&tpm), 0);
    EXPECT_EQ(tpm.bytes[SMBIOS_TPM_PRESENT], 1);
    EXPECT_EQ(GetTPMInfo(nullptr), SMBIOS_DEV_CAPACITY);
    root.writeFile("/var/smbios/faults/GetTPMInfo", "fail");
    EXPECT_EQ(GetTPMInfo(&tpm), SMBIOS_DEV_FAILED);
}

TEST(DevicesStandIn, SdrRecordsAndFruAreas)
{
    TestRoot root(true);
    root.writeFile("/var/sdr/sdr.json", R"({"records": [{"id": 7, "fruDeviceId": 9, "entityId": 48,
        "name": "TPM_MODULE"}, {"id": 8, "type": 18, "name": "OTHER"}]})");
    ASSERT_EQ(sdr_init_readonly(1), 0);
    sdr_record_list_t list;
    ASSERT_EQ(get_sdr_record_by_record_type(SDR_TYPE_FRU_LOCATOR, &list), 1);
    EXPECT_EQ(list.record_id[0], 7);
    sdr_record_t rec;
    ASSERT_EQ(get_sdr_record(7, &rec), 0);
    EXPECT_EQ(rec.data[SDR_FRU_RECORD_TYPE], SDR_TYPE_FRU_LOCATOR);
    EXPECT_EQ(rec.data[SDR_FRU_DEVICE_ID], 9);
    EXPECT_EQ(rec.data[SDR_FRU_ID_LENGTH] & 0x1f, 10);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(rec.data + SDR_FRU_ID_STRING), 10), "TPM_MODULE");
    EXPECT_EQ(get_sdr_record(99, &rec), -1);
    root.writeFile("/var/sdr/faults/get_sdr_record", "short 22");
    ASSERT_EQ(get_sdr_record(7, &rec), 0);
    EXPECT_EQ(rec.length, 22);
    root.writeFile("/var/sdr/faults/sdr_init_readonly", "");
    EXPECT_EQ(sdr_init_readonly(1), -1);

    fru_board_area_t board;
    fru_product_area_t product;
    ASSERT_EQ(get_fru_board_area_from_id(9, &board), 0);
    EXPECT_STREQ(board.product, "NWT-20-001");
    ASSERT_EQ(get_fru_product_area_from_type_instance(FRU_TYPE_PSU, 2, &product), 0);
    EXPECT_STREQ(product.serial, "VPW2231B002");
    EXPECT_EQ(get_fru_product_area_from_type_instance(FRU_TYPE_PSU, 3, &product), -1);
    EXPECT_EQ(get_fru_board_area_from_id(4, &board), -1);  // a supply has no board area here
    root.writeFile("/var/fru/faults/get_fru_product_area_from_id", "");
    EXPECT_EQ(get_fru_product_area_from_id(9, &product), -1);
}
