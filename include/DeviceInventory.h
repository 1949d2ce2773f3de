// DeviceInventory: the inventory sources that do not come from the SMBIOS
// tables: power supplies and GPUs (daemon files), drive-slot sensors, local
// disks, the TPM, the drive-bay variant and the secure-device validation mark.
// One object per InventoryAgent (per connection), used by that connection's
// thread only; it owns the per-request data and borrows the agent's log.
//
// Wiring into InventoryAgent:
//   processGet():      for each raised flag, in this order, status = fetch...();
//                      fetchPowerSupplies(), fetchGpus(), fetchDriveSlots(),
//                      fetchLocalDisks(). Each returns 1 (success) or 2
//                      (failure, already logged); none throws.
//   postProcessGet():  per requested name, in request order:
//                      "platformSkuType" writePlatformSkuType(socket)
//                      "inventoryPSU"    writePowerSupplies(socket)
//                      "inventoryHDD"    writeDriveSlots(socket)
//                      "tarqLocalDisks"  writeLocalDisks(socket)
//                      "inventoryGPU"    writeGpus(socket, slot, mode)
//                      "inventoryTPM"    writeTpm(socket)
//                      "veskSecValidation" postVeskSecValidation(socket)
//   The GPU argument ("inventoryGPU[5 gpuInfo]") may be parsed with
//   parseGpuArgument(), which also prints the diagnostic lines.
#pragma once

#include <string>
#include <vector>

#include "AComponentLog.h"
#include "GUIDataSocket.h"

class DeviceInventory {
public:
    static const int kMaxSupplies = 10;        // power supply records kept
    static const int kMaxSupplyScan = 64;      // supply numbers looked at, whatever num_psu says
    static const int kGpuCards = 2;            // GPU cards looked at
    static const int kMaxGpusPerCard = 4;      // GPUs per card
    static const int kSensorRecordSize = 738;  // drive-slot sensor record
    static const int kMaxSensorRecords = 255;
    static const int kSensorBufferSize = kSensorRecordSize * kMaxSensorRecords;  // 188190
    static const int kDriveSlotSensorType = 13;
    static const int kSensorTimeout = 30000;  // milliseconds

    struct PowerSupply {
        bool failed = false;
        unsigned int inputWatt = 0;           // 0 when unreadable
        unsigned int outputMaxWatt = 0xFFFF;  // 0xFFFF when unreadable
        std::string deviceId;                 // "PSU<n>", n from 1
        std::string fwVersion = "00.00.00";
        std::string model = "UNKNOWN";
        std::string productId = "UNKNOWN";
        std::string mfgRev = "UNKNOWN";
    };
    struct GpuCard {
        int gpus = 0;            // 1 to 4, else 0
        int slotId = -1;         // PCI slot, -1 when unknown
        std::string name;        // "UNKNOWN" without GPUs
        std::vector<int> temps;  // one per GPU, 0 when unreadable
    };
    struct DriveSlot {
        std::string name;
        std::string status;
    };

    explicit DeviceInventory(AComponentLog& log);

    // --- fetch steps (processGet) ---
    int fetchPowerSupplies();  // InventoryPSUviaPMBUSDaemon, 2 on failure
    int fetchGpus();           // InventoryGPUviaGPUDaemon, 2 on failure
    int fetchDriveSlots();     // "GetActiveSensorInfoByType", 2 on failure
    int fetchLocalDisks();     // DisksInfoGet, 2 on failure

    // The daemon readers themselves: 0 on success (also for a system without
    // a GPU count file), else the failed read's result.
    int InventoryPSUviaPMBUSDaemon();
    int InventoryGPUviaGPUDaemon();

    // --- write steps (postProcessGet) ---
    void writePlatformSkuType(GUIDataSocket& socket);
    void writePowerSupplies(GUIDataSocket& socket);
    void writeDriveSlots(GUIDataSocket& socket);
    void writeLocalDisks(GUIDataSocket& socket);
    // `slot` 0 means every card; `mode` "gpuInfo" or "card" (anything else
    // writes nothing).
    void writeGpus(GUIDataSocket& socket, unsigned short slot, const char* mode);
    void writeTpm(GUIDataSocket& socket);
    void postVeskSecValidation(GUIDataSocket& socket);
    // Writes the TPM identity elements from the SDR and FRU data; `model`
    // receives the TPM model text ("NA" when the board area is unreadable,
    // unchanged when no TPM record was found).
    void getTPMFRU(GUIDataSocket& socket, std::string& model);

    // "inventoryGPU" argument: the text between "[" and the next "]", split at
    // blanks: slot word ("L" 76, "M" 77, else a C number, cut to 16 bits) and
    // mode (at most 7 characters kept, enough for "gpuInfo"). Without brackets both stay unchanged;
    // false then.
    static bool parseGpuArgument(const std::string& extra, unsigned short& slot, std::string& mode);

    // TPM part numbers: the version shown when the FRU product area is
    // unreadable, and whether activation and ownership read "NA".
    struct TpmPart {
        const char* partNumber;
        const char* version;
        bool noActivationState;
    };
    static const TpmPart* findTpmPart(const std::string& model);

    // Data of the last fetches (tests and the fuzz targets read them).
    const std::vector<PowerSupply>& powerSupplies() const { return m_supplies; }
    const GpuCard& gpuCard(int index) const { return m_cards[index]; }
    int gpuCardsInSystem() const { return m_gpuCardsInSystem; }
    const std::vector<DriveSlot>& driveSlots() const { return m_driveSlots; }

private:
    AComponentLog& m_log;
    std::vector<PowerSupply> m_supplies;
    GpuCard m_cards[kGpuCards];
    int m_gpuCardsInSystem = 0;
    std::vector<DriveSlot> m_driveSlots;
    unsigned char m_disks[136];

    void writeGpuEntry(GUIDataSocket& socket, unsigned int id, const int* temp);
    void writeGpuCard(GUIDataSocket& socket, const GpuCard& card);
};
