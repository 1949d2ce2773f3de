// mdr_region: the BIOS token code's access to the MDR regions it shares with
// the host BIOS, through OEM IPMI commands (network function 0x3E) sent with
// vkcs_send_ipmi_cmd. Region 3 carries the BIOS's token document to the
// controller, region 2 the controller's values to the BIOS. Called from the
// BIOS token gatherer thread only, one call at a time; the module keeps one
// piece of state, the last seen update counter of region 3.
#pragma once

// Region ids.
const int kMdrRegionBmcToBios = 2;
const int kMdrRegionBiosToBmc = 3;
// Largest payload of one read or write command.
const int kMdrChunkSize = 32;

// Reads `length` bytes of `region` into `buffer` in chunks of at most 32
// bytes. 1 when every chunk was read, 0 at the first failed chunk (the bytes
// read so far stay in the buffer).
int readRegion(int region, char* buffer, int length);

// 1 when region 3 is valid, unlocked, not empty and its update counter
// differs from the one seen by the previous call (0 at start), else 0.
// Status failures go to syslog.
int checkIfBIOSWriteMDRHasBeenUpdated(void);

// Fetches region 3 into "/tmp/BiosTokens/bios_bmc.xml" with single quotes
// turned into double quotes. 1 when fetched, else 0 (the previous file then
// stays as it was).
int readMDRRegionForBiosTokens(void);

// Takes the write lock on `region`, up to 5 attempts. 0 on success with
// *session replaced by the granted session id; otherwise the last attempt's
// non-zero status, *session unchanged.
int getMdrLock(int region, int* session);

// Ends the update of `session` on `region`, up to 5 attempts; a completion
// command that went through is followed by a 1-second pause and a status
// query, which must go through too. 0 on success, else the last status.
int mdrUpdateComplete(int region, int session);

// Writes `length` bytes of `data` to `region` under its lock. -1 when the
// lock or the completion failed; otherwise the status of the last chunk's
// write (0 when it succeeded; a failed earlier chunk does not count).
int writeMdrRegion(int region, char* data, int length);

// Forgets the last seen update counter, as at the start of the process.
void mdrForgetUpdateCounter(void);
