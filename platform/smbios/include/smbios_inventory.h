/* The host's SMBIOS inventory, as the controller's SMBIOS inventory library
 * hands it out: processors, DIMMs, memory summary, system record, boot
 * order, PCIe adapters, on-board NICs and live statistics, as packed
 * little-endian records with NUL-padded strings (the PCI ids big-endian).
 *
 * Every call takes four arguments: `length` (in: bytes of input, 0 when
 * there is none; out: bytes written), the output capacity in bytes, the
 * input (or null) and the output buffer. It returns 0 on success; a call
 * whose output does not fit the capacity fails and writes nothing.
 * Strings fill their fields; a text as long as its field has no NUL.
 *
 * The stand-in builds the records from the readable host description
 * "/var/smbios/host.json" under the platform root on every call, so an
 * edited file shows at once. "/var/smbios/faults/<CallName>" (empty or
 * "fail") makes that call fail; "short <n>" makes it return only the first
 * n bytes. The description's "delayMs" delays every call (off when absent).
 * See docs/simulator.md. Thread-safe. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Record sizes and field offsets (bytes). */
#define SMBIOS_CPU_RECORD_SIZE 424
#define SMBIOS_DIMM_RECORD_SIZE 256
#define SMBIOS_DIMM_DETAIL_RECORD_SIZE 672
#define SMBIOS_MEMORY_SUMMARY_SIZE 280
#define SMBIOS_SYSTEM_RECORD_SIZE 144
#define SMBIOS_SYSTEM_UUID_OFFSET 128
#define SMBIOS_BOOT_ORDER_SIZE 16420
#define SMBIOS_BOOT_RECORD_SIZE 1026
#define SMBIOS_BOOT_MAX_RECORDS 16
#define SMBIOS_BOOT_MAX_DEVICES 16
#define SMBIOS_BOOT_DEVICE_NAME_SIZE 64
#define SMBIOS_PCIE_RECORD_SIZE 212
#define SMBIOS_LOM_RECORD_SIZE 42
#define SMBIOS_STAT_RECORD_SIZE 100
#define SMBIOS_MEMORY_STATS_SIZE 9600
#define SMBIOS_PROCESSOR_STATS_SIZE 400
#define SMBIOS_BOARD_STATS_SIZE 128
#define SMBIOS_BOARD_STAT_FIELD_SIZE 16

/* Data version of the host's tables: one byte, changes at a host reboot
 * or BIOS update. */
int GetSmBiosDataVersion(int* length, int capacity, const void* input, void* output);

/* Counts: an int (capacity 4). Lists: count x record. */
int GetCPUItems(int* length, int capacity, const void* input, void* output);
int GetCPUInfo(int* length, int capacity, const void* input, void* output);
int GetMemoryItems(int* length, int capacity, const void* input, void* output);
int GetMemoryInfo(int* length, int capacity, const void* input, void* output);
/* Input: two ints, first index and count. */
int GetMemoryDetail(int* length, int capacity, const void* input, void* output);
int GetMemorySummary(int* length, int capacity, const void* input, void* output);
int GetSystemInfo(int* length, int capacity, const void* input, void* output);
int GetBootOrderDevices(int* length, int capacity, const void* input, void* output);
int GetPCIeItems(int* length, int capacity, const void* input, void* output);
int GetPCIeAdapters(int* length, int capacity, const void* input, void* output);
int GetMacAddressItems(int* length, int capacity, const void* input, void* output);
int GetMacAddressList(int* length, int capacity, const void* input, void* output);
/* Input: a 16-bit DIMM id (0: every DIMM). As many 100-byte records as fit. */
int GetMemoryStats(int* length, int capacity, const void* input, void* output);
/* Input: a 16-bit 0. */
int GetProcessorStats(int* length, int capacity, const void* input, void* output);
int GetMotherboardStats(int* length, int capacity, const void* input, void* output);

#ifdef __cplusplus
}
#endif
