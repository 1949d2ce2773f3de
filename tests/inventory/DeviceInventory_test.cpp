// Device inventory sources against the simulated server (golden replies) and
// against hand-made daemon files, sensor, disk, SDR and FRU fixtures.
#include "DeviceInventory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>

#include "AgentHarness.h"
#include "ReplyText.h"

namespace {

struct Fixture {
    AgentHarness harness;
    AComponentLog log{"InventoryAgent"};
    DeviceInventory devices{log};
    TestRoot& root() { return harness.root(); }
    std::string write(const std::function<void(DeviceInventory&, GUIDataSocket&)>& step)
    {
        harness.reply();
        step(devices, harness.socket());
        return harness.reply();
    }
    // Replaces the simulated supplies with `count` and the given status words.
    void supplies(int count) { root().writeFile("/var/pmbus/num_psu", le32(count)); }
};

}  // namespace

TEST(DeviceInventory, SimulatedServerRepliesMatchGoldenFiles)
{
    Fixture f;
    ASSERT_EQ(f.devices.fetchPowerSupplies(), 1);
    ASSERT_EQ(f.devices.fetchGpus(), 1);
    ASSERT_EQ(f.devices.fetchDriveSlots(), 1);
    ASSERT_EQ(f.devices.fetchLocalDisks(), 1);
    const struct {
        const char* file;
        std::function<void(DeviceInventory&, GUIDataSocket&)> step;
    } cases[] = {
        {"psu.xml", &DeviceInventory::writePowerSupplies},
        {"hdd.xml", &DeviceInventory::writeDriveSlots},
        {"localdisks.xml", &DeviceInventory::writeLocalDisks},
        {"gpu-info.xml", [](DeviceInventory& d, GUIDataSocket& s) { d.writeGpus(s, 0, "gpuInfo"); }},
        {"gpu-card.xml", [](DeviceInventory& d, GUIDataSocket& s) { d.writeGpus(s, 0, "card"); }},
        {"gpu-slot5-info.xml", [](DeviceInventory& d, GUIDataSocket& s) { d.writeGpus(s, 5, "gpuInfo"); }},
        {"tpm.xml", &DeviceInventory::writeTpm},
        {"sku.xml", &DeviceInventory::writePlatformSkuType},
        {"vesk.xml", &DeviceInventory::postVeskSecValidation},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(f.write(c.step), golden(std::string("devices/") + c.file)) << c.file;
    }
}

TEST(DeviceInventory, StatusWordDecidesFailedSupply)
{
    const struct {
        std::string status;  // raw bytes of ps0/status
        const char* expect;
    } cases[] = {
        {le16(0x0000), "Present"}, {le16(0x0040), "Present"},         // unit off alone
        {le16(0x0840), "Present"},                                    // off and power not good
        {le16(0x0800), "Failed"},  {le16(0x0001), "Failed"},          // power not good; any other bit
        {le16(0x8840), "Failed"},  {std::string(1, '\0'), "Failed"},  // bit 15 stays; short read
    };
    for (const auto& c : cases) {
        Fixture f;
        f.supplies(1);
        f.root().writeFile("/var/pmbus/ps0/status", c.status);
        ASSERT_EQ(f.devices.fetchPowerSupplies(), 1);
        std::string reply = f.write(&DeviceInventory::writePowerSupplies);
        EXPECT_NE(reply.find(std::string("<Status>") + c.expect + "</Status>"), std::string::npos)
            << c.expect << " for status bytes of size " << c.status.size();
    }
}

TEST(DeviceInventory, MissingOrShortDaemonFilesGiveRecordDefaults)
{
    Fixture f;
    f.supplies(3);
    ASSERT_EQ(unlink(f.root().path("/var/pmbus/ps1/status").c_str()), 0);  // PSU2 not present
    f.root().writeFile("/var/pmbus/ps2/status", le16(0));                  // PSU3: nothing else readable
    f.root().writeFile("/var/pmbus/ps0/pin", "");
    unlink(f.root().path("/var/pmbus/ps0/poutmax").c_str());
    f.root().writeFile("/var/pmbus/ps0/model", "short");
    ASSERT_EQ(f.devices.fetchPowerSupplies(), 1);
    ASSERT_EQ(f.devices.powerSupplies().size(), 2u);
    std::string reply = flat(f.write(&DeviceInventory::writePowerSupplies));
    EXPECT_EQ(reply,
              "<PSList><PS><deviceID>PSU1</deviceID><Status>Present</Status><Status2>equipped</Status2>"
              "<InputWatt>0</InputWatt><Power>off</Power><OutputMaxWatt>N/A</OutputMaxWatt>"
              "<fwVersion>10.07.22</fwVersion><Model>UNKNOWN</Model><MfgRev>A03</MfgRev>"
              "<ProductID>PSU-1050AC-HE-FRU</ProductID></PS>"
              "<PS><deviceID>PSU3</deviceID><Status>Present</Status><Status2>equipped</Status2>"
              "<InputWatt>0</InputWatt><Power>off</Power><OutputMaxWatt>N/A</OutputMaxWatt>"
              "<fwVersion>00.00.00</fwVersion><Model>UNKNOWN</Model><MfgRev>UNKNOWN</MfgRev>"
              "<ProductID>UNKNOWN</ProductID></PS></PSList>");
}

TEST(DeviceInventory, SupplyCountIsBounded)
{
    const struct {
        std::string count;
        int status;
        size_t records;
    } cases[] = {
        {le32(-1), 1, 0},          {le32(0), 1, 0}, {le32(1000), 1, 10},
        {le32(0x7fffffff), 1, 10}, {"\x02", 2, 0},  // short count file fails the fetch
    };
    for (const auto& c : cases) {
        Fixture f;
        for (int n = 0; n < 12; n++) {
            f.root().writeFile("/var/pmbus/ps" + std::to_string(n) + "/status", le16(0));
        }
        f.root().writeFile("/var/pmbus/num_psu", c.count);
        EXPECT_EQ(f.devices.fetchPowerSupplies(), c.status);
        EXPECT_EQ(f.devices.powerSupplies().size(), c.records);
    }
    Fixture f;
    unlink(f.root().path("/var/pmbus/num_psu").c_str());
    EXPECT_EQ(f.devices.fetchPowerSupplies(), 2);
}

TEST(DeviceInventory, GpuArgumentForms)
{
    const struct {
        const char* extra;
        bool parsed;
        unsigned short slot;
        const char* mode;
    } cases[] = {
        {"[5 gpuInfo]", true, 5, "gpuInfo"}, {"[L card]", true, 76, "card"},
        {"[M]", true, 77, "keep"},           {"[0x10 card]", true, 16, "card"},
        {"[  3   card ]", true, 3, "card"},  {"[0 gpuInfoExtra]", true, 0, "gpuInfo"},
        {"no brackets", false, 9, "keep"},   {"[7 card", false, 9, "keep"},
    };
    for (const auto& c : cases) {
        unsigned short slot = 9;
        std::string mode = "keep";
        EXPECT_EQ(DeviceInventory::parseGpuArgument(c.extra, slot, mode), c.parsed) << c.extra;
        EXPECT_EQ(slot, c.slot) << c.extra;
        EXPECT_EQ(mode, c.mode) << c.extra;
    }
}

TEST(DeviceInventory, GpuCardsOutsideOneToFourHaveNone)
{
    const struct {
        int gpus;
        const char* cardReply;
    } cases[] = {
        {6, "<gpuCardList><gpuCard></gpuCard><gpuCard></gpuCard></gpuCardList>"},
        {0, "<gpuCardList><gpuCard></gpuCard><gpuCard></gpuCard></gpuCardList>"},
        {-3, "<gpuCardList><gpuCard></gpuCard><gpuCard></gpuCard></gpuCardList>"},
        {4,
         "<gpuCardList><gpuCard><Slot>5</Slot><ProductName>Tessera Q4 Accelerator</ProductName>"
         "<NoOfGPUs>4</NoOfGPUs></gpuCard><gpuCard></gpuCard></gpuCardList>"},
    };
    for (const auto& c : cases) {
        Fixture f;
        f.root().writeFile("/var/gpu/gpu0/num_gpu", le32(c.gpus));
        ASSERT_EQ(f.devices.fetchGpus(), 1);
        EXPECT_EQ(flat(f.write([](DeviceInventory& d, GUIDataSocket& s) { d.writeGpus(s, 0, "card"); })), c.cardReply)
            << c.gpus;
        // Temperatures of GPUs without files read 0.
        if (c.gpus == 4) {
            EXPECT_EQ(f.devices.gpuCard(0).temps, (std::vector<int>{47, 52, 0, 0}));
        }
    }
}

TEST(DeviceInventory, GpuFetchWithoutCountFileSucceedsEmptyAndShortCountFails)
{
    Fixture f;
    unlink(f.root().path("/var/gpu/num_gpu_sys").c_str());
    EXPECT_EQ(f.devices.fetchGpus(), 1);
    EXPECT_EQ(f.devices.gpuCard(0).gpus, 0);
    EXPECT_EQ(flat(f.write([](DeviceInventory& d, GUIDataSocket& s) { d.writeGpus(s, 5, "card"); })),
              "<gpuCardList><gpuCard></gpuCard></gpuCardList>");
    EXPECT_EQ(f.write([](DeviceInventory& d, GUIDataSocket& s) { d.writeGpus(s, 5, "other"); }), "");
    f.root().writeFile("/var/gpu/num_gpu_sys", "\x01");
    EXPECT_EQ(f.devices.fetchGpus(), 2);
}

TEST(DeviceInventory, LocalDisksExamineUpToAndIncludingTheCount)
{
    const struct {
        const char* devices;
        const char* reply;
    } cases[] = {
        // Count 2 with three entries: all three are examined.
        {R"({"diskCount": 2, "disks": [{"slot": 1, "present": 1}, {"slot": 0}, {"slot": 1}]})",
         "<LocalHardDriveList><LocalHardDrive><Id>0</Id><Presence>equipped</Presence>"
         "<Operability>operable</Operability></LocalHardDrive><LocalHardDrive><Id>2</Id>"
         "<Presence>missing</Presence><Operability>unknown</Operability></LocalHardDrive></LocalHardDriveList>"},
        // A count far beyond the buffer stops at its end.
        {R"({"diskCount": 65535, "disks": []})", "<LocalHardDriveList></LocalHardDriveList>"},
    };
    for (const auto& c : cases) {
        Fixture f;
        f.root().writeFile("/var/smbios/devices.json", c.devices);
        ASSERT_EQ(f.devices.fetchLocalDisks(), 1);
        EXPECT_EQ(flat(f.write(&DeviceInventory::writeLocalDisks)), c.reply);
    }
    Fixture f;
    f.root().writeFile("/var/smbios/faults/DisksInfoGet", "");
    EXPECT_EQ(f.devices.fetchLocalDisks(), 2);
}

TEST(DeviceInventory, DriveSlotSensorsFromThePropertyService)
{
    Fixture f;
    std::string rec(738, '\0');
    rec.replace(6, 128, std::string(128, 'N'));  // a name filling its field without terminator
    rec.replace(134, 2, "OK");
    f.root().writeFile("/var/aim/functions/GetActiveSensorInfoByType", "ok\n" + rec + "partial");
    ASSERT_EQ(f.devices.fetchDriveSlots(), 1);
    ASSERT_EQ(f.devices.driveSlots().size(), 1u);
    EXPECT_EQ(f.devices.driveSlots()[0].name, std::string(128, 'N'));
    EXPECT_EQ(f.devices.driveSlots()[0].status, "OK");
    f.root().writeFile("/var/aim/functions/GetActiveSensorInfoByType", "fail 5\n");
    EXPECT_EQ(f.devices.fetchDriveSlots(), 2);
}

TEST(DeviceInventory, PlatformSkuTypeAndValidationMark)
{
    const struct {
        const char* bpType;  // null: no file
        const char* reply;
    } cases[] = {{"0\n", "<hdd>8</hdd>"}, {"2", "<hdd>4</hdd>"}, {"1", ""}, {"x", ""}, {nullptr, "<hdd>NA</hdd>"}};
    for (const auto& c : cases) {
        Fixture f;
        if (c.bpType != nullptr) {
            f.root().writeFile("/var/bp_type", c.bpType);
        } else {
            unlink(f.root().path("/var/bp_type").c_str());
        }
        EXPECT_EQ(flat(f.write(&DeviceInventory::writePlatformSkuType)), c.reply);
    }
    Fixture f;
    f.root().writeFile("/var/security/orl-device-failed-auth", "");
    EXPECT_EQ(flat(f.write(&DeviceInventory::postVeskSecValidation)), "<veskSecValidation>0</veskSecValidation>");
}

TEST(DeviceInventory, TpmReplyFollowsFruAndPartNumbers)
{
    const std::string board = R"("board": {"revision": 2, "manufacturer": "V", "product": "%P", "serial": "S"})";
    const struct {
        const char* part;
        bool productArea;
        const char* fault;  // a fault file under /var, or ""
        const char* expectVersion;
        const char* expectActive;
    } cases[] = {
        {"NWT-12-003", false, "", "<version>1.2</version>", "<activeStatus>activated</activeStatus>"},
        {"NWT-20-001", false, "", "<version>2.0</version>", "<activeStatus>activated</activeStatus>"},
        {"NWT-20-002", false, "", "<version>2.0</version>", "<activeStatus>NA</activeStatus><ownership>NA"},
        {"OTHER-1", false, "", "<version>NA</version>", "<activeStatus>activated</activeStatus>"},
        {"NWT-20-003", true, "", "<version>9.9</version>", "<activeStatus>NA</activeStatus>"},
        {"NWT-12-001", true, "/var/fru/faults/get_fru_board_area_from_id", "<model>NA</model>",
         "<activeStatus>activated</activeStatus>"},
    };
    for (const auto& c : cases) {
        Fixture f;
        std::string area = board;
        area.replace(area.find("%P"), 2, c.part);
        f.root().writeFile("/var/fru/fru.json", std::string(R"({"devices": [{"id": 9, )") + area +
                                                    (c.productArea ? R"(, "product": {"version": "9.9"}}]})" : "}]}"));
        if (*c.fault != '\0') {
            f.root().writeFile(c.fault, "");
        }
        std::string reply = flat(f.write(&DeviceInventory::writeTpm));
        EXPECT_NE(reply.find(c.expectVersion), std::string::npos) << c.part << ": " << reply;
        EXPECT_NE(reply.find(c.expectActive), std::string::npos) << c.part << ": " << reply;
    }
}

TEST(DeviceInventory, TpmReplyShortensWithoutRepositoryOrLibrary)
{
    const char* withoutRepository =
        "<tpm><tpmPresence>equipped</tpmPresence><enabledStatus>enabled</enabledStatus>"
        "<activeStatus>activated</activeStatus><ownership>owned</ownership>"
        "<txtPresent>Overall TXT Disabled</txtPresent><txtIntelVTIssue>NA</txtIntelVTIssue>"
        "<txtIntelVTdIssue>NA</txtIntelVTdIssue><txtHWIssue>NA</txtHWIssue><txtBootIssue>NA</txtBootIssue></tpm>";
    const struct {
        const char* faultFile;
        const char* content;
        const char* reply;
    } cases[] = {
        {"/var/smbios/faults/GetTPMInfo", "fail", ""},
        {"/var/sdr/faults/sdr_init_readonly", "", withoutRepository},
        // Records cut to 23 bytes: the id strings' length bytes claim more than is there.
        {"/var/sdr/faults/get_sdr_record", "short 23", withoutRepository},
    };
    for (const auto& c : cases) {
        Fixture f;
        f.root().writeFile(c.faultFile, c.content);
        EXPECT_EQ(flat(f.write(&DeviceInventory::writeTpm)), c.reply) << c.faultFile;
    }
    Fixture f;
    f.root().writeFile("/var/smbios/devices.json", R"({"tpm": {"present": false}})");
    EXPECT_EQ(flat(f.write(&DeviceInventory::writeTpm)),
              "<tpm><version>NA</version><tpmPresence>empty</tpmPresence><enabledStatus>unknown</enabledStatus>"
              "<activeStatus>unknown</activeStatus><ownership>unknown</ownership><tpmRevision>NA</tpmRevision>"
              "<model>NA</model><vendor>NA</vendor><serial>NA</serial><txtPresent>empty</txtPresent>"
              "<txtIntelVTIssue>NA</txtIntelVTIssue><txtIntelVTdIssue>NA</txtIntelVTdIssue>"
              "<txtHWIssue>NA</txtHWIssue><txtBootIssue>NA</txtBootIssue></tpm>");
}
