#include "biosTokenGatherer.h"

#include <unistd.h>

#include <cstdlib>

#include "BIOSToken.h"
#include "aim_config.h"
#include "bios_util.h"
#include "mdr_region.h"

namespace {

const char* const kDataAvailable = "BiosTokenDataAvailable";
const int kDefaultPollSeconds = 60;

// Sets each token's property to the value the BIOS reported, in document
// order, under the exclusive record lock; frees the values either way.
// True when the lock was granted.
//
// Only tokens that the BIOS schema defines are applied (beyond the original
// design, which applied every name): whatever writes the MDR region could
// otherwise overwrite any controller property. Other names are logged and
// ignored.
bool applyBiosValues(BIOSToken* store, tokenVal* values, int count)
{
    bool granted = !store->getBIOSTokenPSLockForWriting();
    if (granted) {
        for (int i = 0; i < count; ++i) {
            if (!store->isSchemaToken(values[i].name)) {
                bios_syslog("BIOS Token - %s is not in the BIOS schema, ignored\n", values[i].name);
                continue;
            }
            aim_config_set_str(values[i].name, values[i].value, 1);
        }
        store->unlockBIOSTokenPSLock();
    }
    for (int i = 0; i < count; ++i) {
        free(values[i].name);
        free(values[i].value);
    }
    return granted;
}

}  // namespace

int biosTokenPollSeconds(void)
{
    const char* text = getenv("GDS_BIOS_POLL_SECONDS");
    if (text == nullptr || *text == '\0') {
        return kDefaultPollSeconds;
    }
    char* end = nullptr;
    long seconds = strtol(text, &end, 10);
    if (*end != '\0' || seconds < 1 || seconds > kDefaultPollSeconds) {
        return kDefaultPollSeconds;
    }
    return static_cast<int>(seconds);
}

int biosTokenGathererStart(void)
{
    BIOSToken* store = BIOSToken::getBIOSTokenInstance();
    int status = store->initialize();
    if (status != 0) {
        bios_syslog("BIOSTokenGatherer - Initialization not successful\n");
        return status;
    }
    store->setInitDone(true);

    bool dataAvailable = false;
    if (!aim_config_get_bool(kDataAvailable, &dataAvailable)) {
        aim_config_set_bool(kDataAvailable, false, 1);
        dataAvailable = false;
    }

    tokenVal values[BIOSToken::kMaxTokenValues];
    int count = 0;
    store->readBIOSTokenRegionAndGetValues(values, &count);
    applyBiosValues(store, values, count);

    if (dataAvailable) {
        store->sendBIOSTokenDataToMDRRegion();
    }
    store->createOnlyTokensFile();
    return 0;
}

int biosTokenGathererPoll(void)
{
    if (!checkIfBIOSWriteMDRHasBeenUpdated()) {
        return 0;
    }
    BIOSToken* store = BIOSToken::getBIOSTokenInstance();
    tokenVal values[BIOSToken::kMaxTokenValues];
    int count = 0;
    if (store->readBIOSTokenRegionAndGetValues(values, &count) && applyBiosValues(store, values, count)) {
        aim_config_set_bool(kDataAvailable, true, 1);
    }
    return 1;
}

int biosTokenGathererRun(int maxPolls)
{
    int status = biosTokenGathererStart();
    if (status != 0) {
        return status;
    }
    const int interval = biosTokenPollSeconds();
    for (int poll = 0; maxPolls < 0 || poll < maxPolls; ++poll) {
        bool last = maxPolls >= 0 && poll + 1 >= maxPolls;
        if (!biosTokenGathererPoll() && !last) {
            sleep(interval);
        }
    }
    return 0;
}

void* biosTokenGatherer(void* arg)
{
    (void)arg;
    int status = biosTokenGathererRun(-1);
    // Only a failed initialisation comes back. A symbolic link planted under
    // the lock file's or the token folder's name in the shared /tmp stops
    // only the BIOS token work: another local user cannot end the server
    // that way. Any other failure ends the process.
    if (status == BIOSToken::kPlantedLink) {
        bios_syslog("BIOSTokenGatherer - stopped: a symbolic link was planted in /tmp\n");
        return nullptr;
    }
    exit(status);
    return nullptr;
}
