/* Raw IPMI to the controller's own IPMI stack. The stand-in answers the OEM
 * MDR commands (network function 0x3E) from the simulated MDR store under
 * "/var/mdr" of the platform root (see MdrSim.h and docs/bios.md).
 * Thread-safe and safe between processes: every call holds the store's file lock. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* An IPMI message: up to 48 data bytes and their count. On the call the bytes
 * hold the request, on return the response (without the completion code). */
#define VKCS_IPMI_MAX_DATA 48
typedef struct vkcs_ipmi_msg {
    unsigned char data[VKCS_IPMI_MAX_DATA];
    unsigned char length;
} vkcs_ipmi_msg_t;

/* OEM network function and command codes of the MDR regions. */
#define VKCS_NETFN_OEM_MDR 0x3E
#define VKCS_MDR_CMD_STATUS 0x20
#define VKCS_MDR_CMD_COMPLETE 0x21
#define VKCS_MDR_CMD_READ 0x23
#define VKCS_MDR_CMD_WRITE 0x24
#define VKCS_MDR_CMD_LOCK 0x25

/* Completion codes the stand-in answers with. */
#define VKCS_CC_OK 0x00
#define VKCS_CC_REGION_LOCKED 0x81 /* lock held by another session, or wrong session */
#define VKCS_CC_INVALID_COMMAND 0xC1
#define VKCS_CC_BAD_LENGTH 0xC7   /* request length does not fit the command */
#define VKCS_CC_OUT_OF_RANGE 0xC9 /* byte count or offset outside the region */
#define VKCS_CC_NOT_PRESENT 0xCB  /* no such region */
#define VKCS_CC_UNSPECIFIED 0xFF

/* Sends one command and waits for its answer. Returns 0 when the exchange
 * took place (the completion code then tells the command's outcome) and
 * non-zero when it did not (no IPMI stack, bad arguments, injected failure);
 * *completion_code and *msg are then left as they were. */
int vkcs_send_ipmi_cmd(unsigned char netfn, unsigned char lun, unsigned char cmd, unsigned char* completion_code,
                       vkcs_ipmi_msg_t* msg);

#ifdef __cplusplus
}
#endif
