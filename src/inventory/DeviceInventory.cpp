#include "DeviceInventory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "PlatformRoot.h"
#include "aim_config.h"
#include "fru.h"
#include "sdr.h"
#include "smbios_devices.h"

namespace {

// TPM part numbers: four TPM 1.2 modules and three TPM 2.0 modules; the last
// two 2.0 modules report no activation or ownership state ("NA").
const DeviceInventory::TpmPart kTpmParts[] = {
    {"NWT-12-001", "1.2", false}, {"NWT-12-002", "1.2", false}, {"NWT-12-003", "1.2", false},
    {"NWT-12-004", "1.2", false}, {"NWT-20-001", "2.0", false}, {"NWT-20-002", "2.0", true},
    {"NWT-20-003", "2.0", true},
};

bool fileExists(const char* path)
{
    struct stat st;
    return stat(PlatformRoot::path(path).c_str(), &st) == 0;
}

// One read of exactly `size` bytes: 0, or -1 when the file cannot be opened
// or holds fewer bytes (a short read counts as a failure).
int readExact(const char* path, void* out, size_t size)
{
    int fd = open(PlatformRoot::path(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    ssize_t n;
    do {
        n = read(fd, out, size);
    } while (n < 0 && errno == EINTR);
    close(fd);
    return n == static_cast<ssize_t>(size) ? 0 : -1;
}

bool readInt32(const char* path, int& value)
{
    unsigned char b[4];
    if (readExact(path, b, sizeof b) != 0) {
        return false;
    }
    memcpy(&value, b, sizeof value);  // little-endian, like the controller
    return true;
}

bool readU16(const char* path, unsigned int& value)
{
    unsigned char b[2];
    if (readExact(path, b, sizeof b) != 0) {
        return false;
    }
    value = static_cast<unsigned int>(b[0]) | static_cast<unsigned int>(b[1]) << 8;
    return true;
}

// A text field of exactly `size` raw bytes, cut at its first NUL.
bool readText(const char* path, size_t size, std::string& text)
{
    char buf[64] = {};
    if (size >= sizeof buf || readExact(path, buf, size) != 0) {
        return false;
    }
    text.assign(buf, strnlen(buf, size));
    return true;
}

// A text field of a fixed-size record: at most `size` bytes, cut at the first NUL.
std::string field(const char* data, size_t size)
{
    return std::string(data, strnlen(data, size));
}

}  // namespace

DeviceInventory::DeviceInventory(AComponentLog& log) : m_log(log)
{
    memset(m_disks, 0, sizeof m_disks);
}

// ---------------------------------------------------------------- fetches

int DeviceInventory::fetchPowerSupplies()
{
    return InventoryPSUviaPMBUSDaemon() != 0 ? 2 : 1;
}

int DeviceInventory::fetchGpus()
{
    printf("Calling InventoryGPUviaGPUDaemon\n");
    if (InventoryGPUviaGPUDaemon() != 0) {
        printf("Call to InventoryGPUviaGPUDaemon failed\n");
        return 2;
    }
    return 1;
}

int DeviceInventory::fetchDriveSlots()
{
    m_driveSlots.clear();
    std::vector<char> buffer(kSensorBufferSize, 0);
    unsigned char type = kDriveSlotSensorType;
    int length = 1;
    int rc = aim_function_execute_with_timeout_setting("GetActiveSensorInfoByType", &length, &type, kSensorBufferSize,
                                                       buffer.data(), kSensorTimeout);
    if (rc != 0) {
        m_log.logError("%s: GetActiveSensorInfoByType returned %i\n", "processGet", rc);
        return 2;
    }
    if (length < 0 || length > kSensorBufferSize) {
        length = 0;  // the function never reports more than it was given
    }
    int count = length / kSensorRecordSize;
    for (int i = 0; i < count; i++) {
        const char* rec = buffer.data() + i * kSensorRecordSize;
        m_driveSlots.push_back({field(rec + 6, 134 - 6), field(rec + 134, kSensorRecordSize - 134)});
    }
    return 1;
}

int DeviceInventory::fetchLocalDisks()
{
    memset(m_disks, 0, sizeof m_disks);
    int length = 0;
    int rc = DisksInfoGet(&length, sizeof m_disks, nullptr, m_disks);
    if (rc != 0) {
        m_log.logError("%s: DisksInfoGet returned %i\n", "processGet", rc);
        return 2;
    }
    return 1;
}

int DeviceInventory::InventoryPSUviaPMBUSDaemon()
{
    m_log.logTrace("InventoryAgent %s\n", "InventoryPSUviaPMBUSDaemon");
    m_supplies.clear();
    if (!fileExists("/var/pmbus/num_psu")) {
        printf("NUM_PSU_FILE not found %m\n");
        return -1;
    }
    int count = 0;
    if (!readInt32("/var/pmbus/num_psu", count)) {
        return -1;
    }
    char path[64];
    // Only kMaxSupplies records fit; a count such as 1000 or 2^31 never makes
    // more than kMaxSupplyScan supply folders be looked at.
    for (int n = 0; n < count && n < kMaxSupplyScan && static_cast<int>(m_supplies.size()) < kMaxSupplies; n++) {
        snprintf(path, sizeof path, "/var/pmbus/ps%d/status", n);
        if (!fileExists(path)) {
            continue;
        }
        PowerSupply ps;
        ps.deviceId = "PSU" + std::to_string(n + 1);
        unsigned int status = 0;
        if (!readU16(path, status)) {
            ps.failed = true;
        } else {
            // "Power not good" together with "unit off" is a supply switched
            // off, not a failed one; "unit off" alone is no failure either.
            if ((status & 0x0800) && (status & 0x0040)) {
                status &= ~0x0800u;
            }
            status &= ~0x0040u;
            ps.failed = status != 0;
        }
        snprintf(path, sizeof path, "/var/pmbus/ps%d/pin", n);
        if (!readU16(path, ps.inputWatt)) {
            ps.inputWatt = 0;
        }
        snprintf(path, sizeof path, "/var/pmbus/ps%d/poutmax", n);
        if (!readU16(path, ps.outputMaxWatt)) {
            ps.outputMaxWatt = 0xFFFF;
        }
        std::string text;
        snprintf(path, sizeof path, "/var/pmbus/ps%d/rev", n);
        if (readText(path, 8, text)) {
            ps.fwVersion = text;
        }
        snprintf(path, sizeof path, "/var/pmbus/ps%d/model", n);
        if (readText(path, 31, text)) {
            ps.model = text;
        }
        snprintf(path, sizeof path, "/var/pmbus/ps%d/mfgRev", n);
        if (readText(path, 31, text)) {
            ps.mfgRev = text;
        }
        fru_product_area_t area;
        memset(&area, 0, sizeof area);
        if (get_fru_product_area_from_type_instance(FRU_TYPE_PSU, n + 1, &area) == 0) {
            ps.productId = field(area.part_number, 31);
        }
        m_supplies.push_back(ps);
    }
    m_log.logTrace("InventoryAgent: %s(%d)\n", "InventoryPSUviaPMBUSDaemon", 0);
    return 0;
}

int DeviceInventory::InventoryGPUviaGPUDaemon()
{
    m_log.logTrace("InventoryAgent : %s\n", "InventoryGPUviaGPUDaemon");
    for (GpuCard& card : m_cards) {
        card = GpuCard();
        card.slotId = 0;  // zeroed records: slot 0, no name, until a card is read
    }
    m_gpuCardsInSystem = 0;
    int result = 0;
    if (fileExists("/var/gpu/num_gpu_sys")) {
        if (!readInt32("/var/gpu/num_gpu_sys", m_gpuCardsInSystem)) {
            printf("NUM_GPU_FILE not found %m\n");
            result = -1;
        } else {
            printf("File - %s, num-sys-cards=%d\n", "/var/gpu/num_gpu_sys", m_gpuCardsInSystem);
        }
    }
    if (result == 0 && fileExists("/var/gpu/num_gpu_sys")) {
        char path[64];
        for (int c = 0; c < kGpuCards; c++) {
            GpuCard& card = m_cards[c];
            snprintf(path, sizeof path, "/var/gpu/gpu%d/num_gpu", c);
            int gpus = 0;
            if (fileExists(path) && !readInt32(path, gpus)) {
                gpus = 0;
            }
            card.gpus = (gpus >= 1 && gpus <= kMaxGpusPerCard) ? gpus : 0;
            card.name = "UNKNOWN";
            card.slotId = -1;
            if (card.gpus == 0) {
                continue;
            }
            // With GPUs, a missing name or slot file keeps "UNKNOWN" and -1.
            snprintf(path, sizeof path, "/var/gpu/gpu%d/card_name", c);
            FILE* f = fopen(PlatformRoot::path(path).c_str(), "r");
            if (f != nullptr) {
                char line[64] = {};
                if (fgets(line, sizeof line, f) != nullptr) {
                    line[strcspn(line, "\r\n")] = '\0';
                    card.name = line;
                }
                fclose(f);
            }
            snprintf(path, sizeof path, "/var/gpu/gpu%d/pci_slotid", c);
            int slot = -1;
            if (fileExists(path) && readInt32(path, slot)) {
                card.slotId = slot;
            }
            for (int g = 0; g < card.gpus; g++) {
                snprintf(path, sizeof path, "/var/gpu/gpu%d/temp%d", c, g);
                unsigned int temp = 0;
                card.temps.push_back(readU16(path, temp) ? static_cast<int>(temp) : 0);
            }
        }
    }
    m_log.logTrace("InventoryAgent : %s(%d)\n", "InventoryGPUviaGPUDaemon", result);
    return result;
}

// ---------------------------------------------------------------- replies

void DeviceInventory::writePlatformSkuType(GUIDataSocket& socket)
{
    FILE* f = fopen(PlatformRoot::path("/var/bp_type").c_str(), "r");
    if (f == nullptr) {
        socket.writeSimpleElement("hdd", "NA");
        return;
    }
    int type = -1;
    int got = fscanf(f, "%d", &type);
    fclose(f);
    if (got == 1 && type == 0) {
        socket.writeSimpleElement("hdd", "8");
    } else if (got == 1 && type == 2) {
        socket.writeSimpleElement("hdd", "4");
    }
}

void DeviceInventory::writePowerSupplies(GUIDataSocket& socket)
{
    socket.writeString("<PSList>");
    for (const PowerSupply& ps : m_supplies) {
        socket.writeString("<PS>");
        socket.writeSimpleElement("deviceID", ps.deviceId.c_str());
        if (ps.failed) {
            socket.writeSimpleElement("Status", "Failed");
            socket.writeString("<Status2>unknown</Status2>");
        } else {
            socket.writeSimpleElement("Status", "Present");
            socket.writeString("<Status2>equipped</Status2>");
        }
        if (ps.inputWatt > 65534) {
            socket.writeSimpleElement("InputWatt", "N/A");
        } else {
            socket.writeSimpleElement("InputWatt", static_cast<int>(ps.inputWatt));
            socket.writeString(ps.inputWatt != 0 ? "<Power>on</Power>" : "<Power>off</Power>");
        }
        if (ps.outputMaxWatt > 65534) {
            socket.writeSimpleElement("OutputMaxWatt", "N/A");
        } else {
            socket.writeSimpleElement("OutputMaxWatt", static_cast<int>(ps.outputMaxWatt));
        }
        socket.writeSimpleElement("fwVersion", ps.fwVersion.c_str());
        socket.writeSimpleElement("Model", ps.model.c_str());
        socket.writeSimpleElement("MfgRev", ps.mfgRev.c_str());
        socket.writeSimpleElement("ProductID", ps.productId.c_str());
        socket.writeString("</PS>");
    }
    socket.writeString("</PSList>");
}

void DeviceInventory::writeDriveSlots(GUIDataSocket& socket)
{
    socket.writeString("<hddList>");
    for (const DriveSlot& slot : m_driveSlots) {
        socket.writeString("<hdd>");
        socket.writeSimpleElement("name", slot.name.c_str());
        socket.writeSimpleElement("Status", slot.status.c_str());
        socket.writeString("</hdd>");
    }
    socket.writeString("</hddList>");
}

void DeviceInventory::writeLocalDisks(GUIDataSocket& socket)
{
    socket.writeString("<LocalHardDriveList>");
    int count = m_disks[0] | m_disks[1] << 8;
    // Entries 0 up to and including the count, as far as the buffer holds them.
    for (int i = 0; i <= count && i < SMBIOS_DISKS_MAX; i++) {
        unsigned char bits = m_disks[4 + 4 * i];
        if (!(bits & SMBIOS_DISK_SLOT)) {
            continue;
        }
        socket.writeString("<LocalHardDrive>");
        socket.writeSimpleElement("Id", i);
        if (bits & SMBIOS_DISK_PRESENT) {
            socket.writeSimpleElement("Presence", "equipped");
            socket.writeSimpleElement("Operability", (bits & SMBIOS_DISK_DEGRADED) ? "degraded" : "operable");
        } else {
            socket.writeSimpleElement("Presence", "missing");
            socket.writeSimpleElement("Operability", "unknown");
        }
        socket.writeString("</LocalHardDrive>");
    }
    socket.writeString("</LocalHardDriveList>");
}

void DeviceInventory::writeGpuEntry(GUIDataSocket& socket, unsigned int id, const int* temp)
{
    socket.writeString("<gpu>");
    socket.writeSimpleElement("id", id);
    if (temp != nullptr) {
        socket.writeSimpleElement("temp", *temp);
    } else {
        socket.writeSimpleElement("temp", "n/a");
    }
    socket.writeString("</gpu>");
}

void DeviceInventory::writeGpuCard(GUIDataSocket& socket, const GpuCard& card)
{
    socket.writeString("<gpuCard>");
    if (card.gpus > 0) {
        socket.writeSimpleElement("Slot", card.slotId);
        socket.writeSimpleElement("ProductName", card.name.c_str());
        socket.writeSimpleElement("NoOfGPUs", card.gpus);
    }
    socket.writeString("</gpuCard>");
}

void DeviceInventory::writeGpus(GUIDataSocket& socket, unsigned short slot, const char* mode)
{
    const GpuCard* found = nullptr;
    if (slot != 0) {
        for (int c = 0; c < kGpuCards && found == nullptr; c++) {
            printf("gpuList - si=%d, pciSlotId=%d, gpuSlotID=%d\n", c, m_cards[c].slotId, slot);
            if (m_cards[c].slotId == slot) {
                found = &m_cards[c];
            }
        }
    }
    if (mode != nullptr && strcmp(mode, "gpuInfo") == 0) {
        printf("Coming here - gpuInfo\n");
        socket.writeString("<gpuList>");
        if (slot != 0) {
            if (found != nullptr && found->gpus > 0) {
                for (int g = 0; g < found->gpus; g++) {
                    writeGpuEntry(socket, static_cast<unsigned int>(g), &found->temps[g]);
                }
                for (int g = found->gpus; g < kMaxGpusPerCard; g++) {
                    writeGpuEntry(socket, static_cast<unsigned int>(g), nullptr);
                }
            }
        } else {
            for (int c = 0; c < kGpuCards; c++) {
                const GpuCard& card = m_cards[c];
                for (int g = 0; g < card.gpus; g++) {
                    writeGpuEntry(socket, static_cast<unsigned int>(c), &card.temps[g]);
                }
                for (int g = card.gpus; g < kMaxGpusPerCard; g++) {
                    writeGpuEntry(socket, static_cast<unsigned int>(c), nullptr);
                }
            }
        }
        socket.writeString("</gpuList>");
    } else if (mode != nullptr && strcmp(mode, "card") == 0) {
        printf("Coming here - card\n");
        socket.writeString("<gpuCardList>");
        if (slot != 0) {
            socket.writeString("<gpuCard>");
            if (found != nullptr && found->gpus > 0) {
                socket.writeSimpleElement("Slot", found->slotId);
                socket.writeSimpleElement("ProductName", found->name.c_str());
                socket.writeSimpleElement("NoOfGPUs", found->gpus);
            }
            socket.writeString("</gpuCard>");
        } else {
            for (int c = 0; c < kGpuCards; c++) {
                writeGpuCard(socket, m_cards[c]);
            }
        }
        socket.writeString("</gpuCardList>");
    }
}

const DeviceInventory::TpmPart* DeviceInventory::findTpmPart(const std::string& model)
{
    for (const TpmPart& part : kTpmParts) {
        if (model == part.partNumber) {
            return &part;
        }
    }
    return nullptr;
}

void DeviceInventory::getTPMFRU(GUIDataSocket& socket, std::string& model)
{
    if (sdr_init_readonly(1) != 0) {
        m_log.logError("Error: Unable to initialize the SDR repository \n");
        return;
    }
    sdr_record_list_t list;
    memset(&list, 0, sizeof list);
    int count = get_sdr_record_by_record_type(SDR_TYPE_FRU_LOCATOR, &list);
    if (count > SDR_LIST_MAX) {
        count = SDR_LIST_MAX;
    }
    bool found = false;
    int fruId = 0;
    for (int i = 0; i < count && !found; i++) {
        sdr_record_t rec;
        memset(&rec, 0, sizeof rec);
        if (get_sdr_record(list.record_id[i], &rec) != 0) {
            continue;
        }
        printf("SDR TYPE 11 FOUND ");
        int recLength = rec.length < 0 ? 0 : (rec.length > SDR_RECORD_MAX ? SDR_RECORD_MAX : rec.length);
        // The id string's length byte may claim more than the record holds:
        // take only the bytes that are there.
        int nameLength = rec.data[SDR_FRU_ID_LENGTH] & 0x1f;
        if (SDR_FRU_ID_STRING + nameLength > recLength) {
            nameLength = recLength > SDR_FRU_ID_STRING ? recLength - SDR_FRU_ID_STRING : 0;
        }
        char name[32] = {};
        memcpy(name, rec.data + SDR_FRU_ID_STRING, static_cast<size_t>(nameLength));
        printf("SENSOR NAME = %s FRU ENTITY ID = 0x%x FRU DEVICE ID = 0x%x\n", name, rec.data[SDR_FRU_ENTITY_ID],
               rec.data[SDR_FRU_DEVICE_ID]);
        if (strcasestr(name, "TPM") != nullptr) {
            found = true;
            fruId = rec.data[SDR_FRU_DEVICE_ID];
        }
    }
    if (!found) {
        return;
    }
    printf("TPM SDR FOUND ");
    fru_board_area_t board;
    memset(&board, 0, sizeof board);
    if (get_fru_board_area_from_id(fruId, &board) != 0) {
        socket.writeSimpleElement("tpmRevision", "NA");
        socket.writeSimpleElement("model", "NA");
        socket.writeSimpleElement("vendor", "NA");
        socket.writeSimpleElement("serial", "NA");
        model = "NA";
    } else {
        socket.writeSimpleElement("tpmRevision", board.revision);
        model = field(board.product, sizeof board.product);
        socket.writeSimpleElement("model", model.c_str());
        socket.writeSimpleElement("vendor", field(board.manufacturer, sizeof board.manufacturer).c_str());
        socket.writeSimpleElement("serial", field(board.serial, sizeof board.serial).c_str());
    }
    fru_product_area_t product;
    memset(&product, 0, sizeof product);
    if (get_fru_product_area_from_id(fruId, &product) == 0) {
        socket.writeSimpleElement("version", field(product.version, sizeof product.version).c_str());
    } else {
        const TpmPart* part = findTpmPart(model);
        socket.writeSimpleElement("version", part != nullptr ? part->version : "NA");
    }
}

void DeviceInventory::writeTpm(GUIDataSocket& socket)
{
    smbios_tpm_info_t info = {};
    if (GetTPMInfo(&info) != 0) {
        return;
    }
    const unsigned char* tpm = info.bytes;
    socket.writeString("<tpm>");
    if (!tpm[SMBIOS_TPM_PRESENT]) {
        static const char* const kAbsent[][2] = {
            {"version", "NA"},
            {"tpmPresence", "empty"},
            {"enabledStatus", "unknown"},
            {"activeStatus", "unknown"},
            {"ownership", "unknown"},
            {"tpmRevision", "NA"},
            {"model", "NA"},
            {"vendor", "NA"},
            {"serial", "NA"},
            {"txtPresent", "empty"},
            {"txtIntelVTIssue", "NA"},
            {"txtIntelVTdIssue", "NA"},
            {"txtHWIssue", "NA"},
            {"txtBootIssue", "NA"},
        };
        for (const auto& e : kAbsent) {
            socket.writeSimpleElement(e[0], e[1]);
        }
        socket.writeString("</tpm>");
        return;
    }
    socket.writeSimpleElement("tpmPresence", "equipped");
    socket.writeSimpleElement("enabledStatus", tpm[SMBIOS_TPM_ENABLED] ? "enabled" : "disabled");
    std::string model;
    getTPMFRU(socket, model);
    const TpmPart* part = findTpmPart(model);
    if (part != nullptr && part->noActivationState) {
        socket.writeSimpleElement("activeStatus", "NA");
        socket.writeSimpleElement("ownership", "NA");
    } else {
        socket.writeSimpleElement("activeStatus", tpm[SMBIOS_TPM_ACTIVATED] ? "activated" : "deactivated");
        socket.writeSimpleElement("ownership", tpm[SMBIOS_TPM_OWNED] ? "owned" : "unowned");
    }
    if (tpm[SMBIOS_TPM_TXT_PRESENT]) {
        static const struct {
            int offset;
            const char* name;
            const char* issue;
            const char* fine;
        } kTxt[] = {
            {SMBIOS_TPM_TXT_VT_ISSUE, "txtIntelVTIssue", "TXT cannot be enabled due to BIOS Intel-VT disabled",
             "No Issue with Intel-VT"},
            {SMBIOS_TPM_TXT_VTD_ISSUE, "txtIntelVTdIssue", "TXT cannot be enabled due to BIOS Intel VT-d disabled",
             "No Issue with Intel VT-d"},
            {SMBIOS_TPM_TXT_HW_ISSUE, "txtHWIssue", "TXT cannot be enabled due to platform HW issue",
             "No Issue with chipset, CPU and TPM and board strapping"},
            {SMBIOS_TPM_TXT_BOOT_ISSUE, "txtBootIssue",
             "TXT Disabled, TXT havent been enabled, or TXT boot failed back to non-TXT boot, Referring to various "
             "status words for more info for latter case.",
             "TXT Boot successful"},
        };
        socket.writeSimpleElement("txtPresent", "TXT Enabled");
        for (const auto& t : kTxt) {
            socket.writeSimpleElement(t.name, tpm[t.offset] ? t.issue : t.fine);
        }
    } else {
        socket.writeSimpleElement("txtPresent", "Overall TXT Disabled");
        socket.writeSimpleElement("txtIntelVTIssue", "NA");
        socket.writeSimpleElement("txtIntelVTdIssue", "NA");
        socket.writeSimpleElement("txtHWIssue", "NA");
        socket.writeSimpleElement("txtBootIssue", "NA");
    }
    socket.writeString("</tpm>");
}

void DeviceInventory::postVeskSecValidation(GUIDataSocket& socket)
{
    socket.writeSimpleElement("veskSecValidation", fileExists("/var/security/orl-device-failed-auth") ? "0" : "1");
}

bool DeviceInventory::parseGpuArgument(const std::string& extra, unsigned short& slot, std::string& mode)
{
    size_t open = extra.find('[');
    size_t close = open == std::string::npos ? std::string::npos : extra.find(']', open + 1);
    if (close == std::string::npos) {
        return false;
    }
    std::string inner = extra.substr(open + 1, close - open - 1);
    printf("Inventory Type:GPU %s\n", inner.c_str());
    std::vector<std::string> words;
    size_t pos = 0;
    while (pos < inner.size()) {
        size_t end = inner.find(' ', pos);
        if (end == std::string::npos) {
            end = inner.size();
        }
        if (end > pos) {
            words.push_back(inner.substr(pos, end - pos));
        }
        pos = end + 1;
    }
    if (!words.empty()) {
        printf("GPU - %s\n", words[0].c_str());
        if (words[0] == "L" || words[0] == "M") {
            slot = static_cast<unsigned short>(words[0][0]);
        } else {
            slot = static_cast<unsigned short>(strtoul(words[0].c_str(), nullptr, 0));
        }
        printf("This is m_gpuslotID=%d\n", slot);
    }
    if (words.size() > 1) {
        // A mode buffer of four characters could never hold "gpuInfo": keep
        // up to seven, enough for both modes; longer words match neither.
        mode = words[1].substr(0, 7);
        printf("This is mode %s\n", mode.c_str());
    }
    return true;
}
