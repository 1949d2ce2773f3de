// MdrSim: the simulated MDR store behind the IPMI stand-in. Each region lives
// in "/var/mdr/region<N>/" of the platform root ("state": key=value lines,
// "data": the region's bytes); faults are queued in "/var/mdr/faults/<cc>";
// calls are recorded in "/var/mdr/calls.log" while that file exists.
// Any thread, any process: every operation holds a lock on "/var/mdr/.lock".
#pragma once

#include <string>

#include "vkcs_ipmi.h"

class MdrSim {
public:
    // Largest region: the bytes-in-use count is 16 bits wide.
    static constexpr int kMaxRegionSize = 65535;

    struct Region {
        int valid = 0;                  // 1 while the region holds complete data
        int counter = 0;                // update counter, bumped by each completed update
        int lock = 0;                   // lock state byte: 0 unlocked
        int session = 0;                // session id of the update that holds the lock (0: none)
        int capacity = kMaxRegionSize;  // bytes the region can hold
        int used = 0;                   // bytes in use
        long long lockExpiresMs = 0;    // when an update's lock lapses (0: never)
        int nextSession = 1;            // next session id to grant (1..255)
    };

    // IPMI side: one command of network function 0x3E, as vkcs_send_ipmi_cmd
    // hands it over. Returns 0 when answered (see vkcs_send_ipmi_cmd).
    static int exchange(unsigned char cmd, unsigned char* completionCode, vkcs_ipmi_msg_t* msg);

    // BIOS side (biossim and tests). All return false when the store or the
    // region is missing or a file cannot be written.
    // Creates the store folder "/var/mdr" (and region folder) when missing.
    static bool createRegion(int region, int capacity);
    // Replaces the region's content as the BIOS does after POST: the data,
    // in-use count = its length, valid, unlocked, update counter bumped.
    static bool biosWrite(int region, const std::string& data, std::string* error = nullptr);
    // The region's bytes in use.
    static bool readData(int region, std::string& data);
    static bool status(int region, Region& region_state);
    // Sets one state field ("valid", "counter", "lock", "session", "capacity", "used").
    static bool setField(int region, const std::string& key, long long value);

    // Faults for command `cmd` (0x20, 0x21, 0x23, 0x24, 0x25): blank-separated
    // outcomes, one consumed per call: "ok", "fail" (the call returns -1),
    // "cc=XX" (completion code XX, hex, no data), "len=N" (answer normally,
    // then report a response of N bytes), "nocc" (returns 0 but fills in
    // nothing). A leading "*" makes an outcome stick for every later call.
    // An empty text clears the command's faults.
    static bool setFaults(int cmd, const std::string& outcomes);
    static void clearFaults();

    // Call recording: on creates an empty "/var/mdr/calls.log", off removes it.
    // Line per call: "<cmd> rc=<rc> cc=<cc> req=<hex bytes>" (hex, two digits).
    static bool setTrace(bool on);
    static std::string trace();

    // Update counter after `counter`: 1..255, wrapping to 1 so that a
    // counter of 0 only ever means "never written".
    static int nextCounter(int counter) { return counter >= 255 ? 1 : counter + 1; }
};
