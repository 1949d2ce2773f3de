#include "mdr_region.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PlatformRoot.h"
#include "bios_util.h"
#include "vkcs_ipmi.h"

namespace {

const unsigned char kNetFn = 0x3E;
const unsigned char kCmdStatus = 0x20;
const unsigned char kCmdUpdateComplete = 0x21;
const unsigned char kCmdRead = 0x23;
const unsigned char kCmdWrite = 0x24;
const unsigned char kCmdLock = 0x25;
const int kAttempts = 5;

const char* const kBiosDocument = "/tmp/BiosTokens/bios_bmc.xml";
const char* const kQuoteRewriteFile = "/tmp/BiosTokens/tmp.xml";

// Update counter of region 3 as last reported by checkIfBIOSWriteMDRHasBeenUpdated.
unsigned char g_lastUpdateCounter = 0;

int sendCommand(unsigned char cmd, unsigned char* completionCode, vkcs_ipmi_msg_t* msg)
{
    return vkcs_send_ipmi_cmd(kNetFn, 0, cmd, completionCode, msg);
}

// Queries region 3's status. 1 when it holds BIOS data that may be read:
// exchange and completion code good, 9 bytes for region 3, valid, unlocked,
// in use. `inUse` and `counter` receive the count and the update counter.
int queryBiosRegionStatus(bool logFailures, int* inUse, unsigned char* counter)
{
    vkcs_ipmi_msg_t msg;
    memset(&msg, 0, sizeof msg);
    unsigned char completionCode = 0xCC;  // counts as failed unless the call fills it in
    msg.data[0] = kMdrRegionBiosToBmc;
    msg.length = 1;
    int status = sendCommand(kCmdStatus, &completionCode, &msg);
    if (status != 0 || completionCode != 0) {
        if (logFailures) {
            bios_syslog("BIOS Token - Get Status Error: %x %x\n", status, completionCode);
        }
        return 0;
    }
    if (msg.length != 9 || msg.data[1] != kMdrRegionBiosToBmc) {
        if (logFailures) {
            bios_syslog("BIOS Token Incorrect Status: %x %x \n", msg.length, msg.data[1]);
        }
        return 0;
    }
    int used = msg.data[7] | (msg.data[8] << 8);
    if (msg.data[2] != 1 || msg.data[4] != 0 || used == 0) {
        return 0;
    }
    *inUse = used;
    *counter = msg.data[3];
    return 1;
}

}  // namespace

int readRegion(int region, char* buffer, int length)
{
    if (buffer == nullptr && length > 0) {
        return 0;
    }
    for (int offset = 0; offset < length;) {
        int chunk = length - offset < kMdrChunkSize ? length - offset : kMdrChunkSize;
        vkcs_ipmi_msg_t msg;
        memset(&msg, 0, sizeof msg);
        unsigned char completionCode = 0;
        msg.data[0] = static_cast<unsigned char>(region);
        msg.data[1] = static_cast<unsigned char>(chunk);
        msg.data[2] = offset & 0xFF;
        msg.data[3] = (offset >> 8) & 0xFF;
        msg.length = 4;
        if (sendCommand(kCmdRead, &completionCode, &msg) != 0) {
            return 0;
        }
        // The data follows the count and counter bytes of the response.
        memcpy(buffer + offset, msg.data + 2, chunk);
        offset += chunk;
    }
    return 1;
}

int checkIfBIOSWriteMDRHasBeenUpdated(void)
{
    int inUse = 0;
    unsigned char counter = 0;
    if (!queryBiosRegionStatus(true, &inUse, &counter)) {
        return 0;
    }
    if (counter == g_lastUpdateCounter) {
        return 0;
    }
    g_lastUpdateCounter = counter;
    return 1;
}

void mdrForgetUpdateCounter(void)
{
    g_lastUpdateCounter = 0;
}

int readMDRRegionForBiosTokens(void)
{
    int inUse = 0;
    unsigned char counter = 0;
    if (!queryBiosRegionStatus(false, &inUse, &counter)) {
        return 0;
    }
    char* buffer = static_cast<char*>(calloc(inUse, 1));
    if (buffer != nullptr && !readRegion(kMdrRegionBiosToBmc, buffer, inUse)) {
        free(buffer);
        return 0;
    }
    const std::string document = PlatformRoot::path(kBiosDocument);
    FILE* file = PlatformRoot::openNoFollow(document, "w");  // a planted link is not followed
    if (file == nullptr) {
        // The document cannot be written: report no fetch and leave the quote
        // rewrite out, so no command works on a file that was not produced.
        free(buffer);
        return 0;
    }
    if (buffer != nullptr) {
        fwrite(buffer, 1, strnlen(buffer, inUse), file);
    }
    free(buffer);
    fclose(file);

    // The BIOS quotes attribute values with single quotes; the token reader
    // expects double quotes.
    const std::string rewritten = PlatformRoot::path(kQuoteRewriteFile);
    bios_run_command("sed s/\\'/\\\"/g %s > %s", document.c_str(), rewritten.c_str());
    bios_run_command("mv %s %s", rewritten.c_str(), document.c_str());
    return 1;
}

int getMdrLock(int region, int* session)
{
    if (session == nullptr) {
        return -1;
    }
    int status = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        vkcs_ipmi_msg_t msg;
        memset(&msg, 0, sizeof msg);
        unsigned char completionCode = 0;
        msg.data[0] = *session & 0xFF;
        msg.data[1] = static_cast<unsigned char>(region);
        msg.data[2] = 1;     // lock type
        msg.data[3] = 0x32;  // lock timeout, low and high byte
        msg.data[4] = 0x32;
        msg.length = 5;
        status = sendCommand(kCmdLock, &completionCode, &msg);
        if (status == 0) {
            *session = msg.data[0];
            return 0;
        }
    }
    return status;
}

int mdrUpdateComplete(int region, int session)
{
    int status = -1;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        vkcs_ipmi_msg_t msg;
        memset(&msg, 0, sizeof msg);
        unsigned char completionCode = 0;
        msg.data[0] = session & 0xFF;
        msg.data[1] = static_cast<unsigned char>(region);
        msg.length = 2;
        status = sendCommand(kCmdUpdateComplete, &completionCode, &msg);
        if (status != 0) {
            continue;
        }
        sleep(1);
        memset(&msg, 0, sizeof msg);
        msg.data[0] = static_cast<unsigned char>(region);
        msg.length = 1;
        status = sendCommand(kCmdStatus, &completionCode, &msg);
        if (status == 0) {
            return 0;
        }
    }
    return status;
}

int writeMdrRegion(int region, char* data, int length)
{
    if (data == nullptr && length > 0) {
        return -1;
    }
    int session = 0;
    if (getMdrLock(region, &session) != 0) {
        return -1;
    }
    int status = 0;
    int chunks = length > 0 ? (length + kMdrChunkSize - 1) / kMdrChunkSize : 0;
    for (int i = 0; i < chunks; ++i) {
        int offset = kMdrChunkSize * i;
        int chunk = length - offset < kMdrChunkSize ? length - offset : kMdrChunkSize;
        vkcs_ipmi_msg_t msg;
        memset(&msg, 0, sizeof msg);
        unsigned char completionCode = 0;
        msg.data[0] = session & 0xFF;
        msg.data[1] = static_cast<unsigned char>(region);
        msg.data[2] = static_cast<unsigned char>(chunk);
        msg.data[3] = offset & 0xFF;
        msg.data[4] = (offset >> 8) & 0xFF;
        memcpy(msg.data + 5, data + offset, chunk);
        msg.length = static_cast<unsigned char>(chunk + 5);
        status = sendCommand(kCmdWrite, &completionCode, &msg);
    }
    if (mdrUpdateComplete(region, session) != 0) {
        return -1;
    }
    return status;
}
