// AdapterMacDatabase: the network adapters of the PCIe slots and their MAC
// addresses, from the BIOS-published "MacDB.bin", for "AdapterMacAddressList".
// The adapter table and the update state are process-wide (statics); the slot
// argument and mode are per object (one per InventoryAgent, its connection's
// thread). getAdapterMacInfo() and postAdapterMacAddressList() must run under
// the inventory agent's mutex (its SMBIOS pass holds it); checkforAdapterUpdate
// may run outside it (its state is atomic).
//
// Wiring into InventoryAgent:
//   preProcessGet("AdapterMacAddressList", extra): CheckforAdapterUpdate();
//                                                  extractSlotInfo(extra);
//   SMBIOS pass, under m_mutex, when the name was requested: getAdapterMacInfo();
//   reply, still under m_mutex: postAdapterMacAddressList(socket) (clears the
//   slot argument and mode).
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "AComponentLog.h"
#include "GUIDataSocket.h"

class AdapterMacDatabase {
public:
    static const int kHeaderSize = 8;
    static const int kSlotEntrySize = 72;
    static const int kMacEntrySize = 40;
    static const unsigned char kSignature = 0xDB;
    static const char* const kPrimaryPath;    // "/var/pellox/BIOS/MacDB.bin"
    static const char* const kSecondaryPath;  // "/mnt/jffs2/MacDB.bin"
    static const char* const kSlotListPath;   // "/tmp/SlotInfo.txt"

    struct Mac {
        unsigned short interfaceId;
        std::string address;  // at most 31 characters
        std::string media;    // always "N/A"
    };
    struct Adapter {
        unsigned short slotId;
        unsigned short interfaces;
        std::string name;  // at most 63 characters
        std::vector<Mac> macs;
    };

    explicit AdapterMacDatabase(AComponentLog& log);

    // Slot count of the platform's slot map (DataAgent::getPlatform()).
    static int getMaxPlatformSlots();
    // Notices a newer file at either location and raises the update flag.
    void CheckforAdapterUpdate();
    // Slot and mode from "[<slot> <mode>]"; nothing without brackets.
    void extractSlotInfo(const std::string& extra);
    // 0 when the file at controller path `path` is a valid database, else -1.
    int ValidateMacDB(const char* path);
    // Rebuilds the adapter table when it is missing or a newer file was seen.
    void getAdapterMacInfo();
    // Writes the reply for the current slot argument and mode, then clears them.
    void postAdapterMacAddressList(GUIDataSocket& socket);

    // Slot id as written in replies and the slot list: the number up to 64,
    // else one or two letters.
    static std::string slotText(unsigned short id);

    unsigned short slotArgument() const { return m_slot; }
    const std::string& mode() const { return m_mode; }
    bool slotRejected() const { return m_slotRejected; }

    // Process-wide table (read under the agent's mutex) and test helpers.
    static const std::vector<Adapter>& adapters() { return s_adapters; }
    static int adapterCount() { return s_adapterCount; }
    static bool updatePending() { return s_updateFound.load(); }
    // Forgets the table and the remembered times (tests switch roots).
    static void reset();

private:
    AComponentLog& m_log;
    unsigned short m_slot = 0;
    bool m_slotRejected = false;
    std::string m_mode;

    // Guarded by the inventory agent's mutex.
    static std::vector<Adapter> s_adapters;
    static int s_adapterCount;  // iAdapterMacItems
    static bool s_haveTable;
    // Touched outside the mutex by CheckforAdapterUpdate: atomics.
    static std::atomic<bool> s_updateFound;
    static std::atomic<int64_t> s_seenTime[2];

    int validateImage(const std::vector<unsigned char>& image, int slots);
    void discard();
    void writeMacList(GUIDataSocket& socket, const Adapter& adapter);
    void writeAdapter(GUIDataSocket& socket, const Adapter& adapter, bool withMacs);
};
