/* Device calls of the SMBIOS inventory library: local disks and the TPM.
 * The disk call has the library's usual convention: (int* length,
 * int capacity, const void* input, void* output), *length the input length on
 * the call and the bytes written on return; 0 on success. The TPM call fills
 * one structure. The stand-in reads
 * "/var/smbios/devices.json" under the platform root; a fault file
 * "/var/smbios/faults/<call>" (empty or "fail") makes the call fail, "short <n>"
 * returns only n bytes. Thread-safe: no state. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Local disks: unsigned 16-bit count at 0, one 4-byte entry per disk from
 * offset 4 (flags in its first byte: bit 0 slot exists, bit 1 present,
 * bit 2 degraded). */
#define SMBIOS_DISKS_SIZE 136
#define SMBIOS_DISKS_MAX ((SMBIOS_DISKS_SIZE - 4) / 4)
#define SMBIOS_DISK_SLOT 0x01
#define SMBIOS_DISK_PRESENT 0x02
#define SMBIOS_DISK_DEGRADED 0x04

/* TPM state: one byte each, non-zero meaning yes. */
#define SMBIOS_TPM_SIZE 16
#define SMBIOS_TPM_PRESENT 6
#define SMBIOS_TPM_ENABLED 7
#define SMBIOS_TPM_ACTIVATED 8
#define SMBIOS_TPM_OWNED 9
#define SMBIOS_TPM_TXT_PRESENT 11
#define SMBIOS_TPM_TXT_VT_ISSUE 12
#define SMBIOS_TPM_TXT_VTD_ISSUE 13
#define SMBIOS_TPM_TXT_HW_ISSUE 14
#define SMBIOS_TPM_TXT_BOOT_ISSUE 15

/* Results besides 0. */
#define SMBIOS_DEV_FAILED (-1)   /* fault file, missing or broken fixture */
#define SMBIOS_DEV_CAPACITY (-2) /* output buffer too small or null */

int DisksInfoGet(int* length, int capacity, const void* input, void* output);
/* The TPM state as the library's structure (bytes at the offsets above);
 * 0 on success. With "short <n>" only the first n bytes are filled. */
typedef struct smbios_tpm_info {
    unsigned char bytes[SMBIOS_TPM_SIZE];
} smbios_tpm_info_t;
int GetTPMInfo(smbios_tpm_info_t* structure);

#ifdef __cplusplus
}
#endif
