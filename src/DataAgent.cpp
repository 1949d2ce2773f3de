#include "DataAgent.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "DataHandler.h"
#include "PlatformRoot.h"

int DataAgent::platform_ = 0;

DataAgent::DataAgent(const char* name, DataHandler& handler)
    : m_name(name), m_dataHandler(&handler), m_log(name), m_status(1), m_backendText(nullptr)
{
    m_log.setParent(handler.getLog());
}

DataAgent::~DataAgent()
{
    free(m_backendText);
}

namespace {
// The first whitespace-delimited word of a file, at most 63 characters; ""
// when the file cannot be read.
std::string firstWord(const char* controllerPath, bool* opened = nullptr)
{
    std::string path = PlatformRoot::path(controllerPath);
    FILE* f = fopen(path.c_str(), "r");
    if (opened != nullptr) {
        *opened = f != nullptr;
    }
    if (f == nullptr) {
        return "";
    }
    char word[64] = "";
    if (fscanf(f, "%63s", word) != 1) {
        word[0] = '\0';
    }
    fclose(f);
    return word;
}
}  // namespace

PLATFORM DataAgent::getPlatform()
{
    if (platform_ != 0) {
        return static_cast<PLATFORM>(platform_);
    }
    static const struct {
        const char* product;
        PLATFORM platform;
    } kProducts[] = {
        {"dravon", PLATFORM_DRAVON},     {"zenth", PLATFORM_ZENTH},     {"kestin", PLATFORM_KESTIN},
        {"morlac", PLATFORM_MORLAC},     {"tovrel", PLATFORM_TOVREL},   {"quentar", PLATFORM_QUENTAR},
        {"lurven", PLATFORM_LURVEN},     {"pallix1", PLATFORM_PALLIX1}, {"pallix2", PLATFORM_PALLIX2},
        {"vorsha1", PLATFORM_VORSHA1},   {"vorsha2", PLATFORM_VORSHA2}, {"greff1", PLATFORM_GREFF1},
        {"greff2", PLATFORM_GREFF2},     {"nimbrel1", PLATFORM_NIMBREL1}, {"castrel", PLATFORM_CASTREL},
        {"ondrik", PLATFORM_ONDRIK},     {"wescal", PLATFORM_WESCAL},   {"fenlow", PLATFORM_FENLOW},
        {"ruskel", PLATFORM_RUSKEL},
    };
    // Without "/etc/product" (a development machine) the platform is unknown.
    std::string product = firstWord("/etc/product");
    int found = 0;
    for (const auto& entry : kProducts) {
        if (product == entry.product) {
            found = entry.platform;
            break;
        }
    }
    if (found == PLATFORM_DRAVON) {
        if (firstWord("/proc/pellox/gpio/2u_chassis").compare(0, 1, "1") == 0) {
            found = PLATFORM_DRAVON_2U;
        }
    } else if (found == PLATFORM_RUSKEL) {
        bool opened = false;
        if (firstWord("/proc/pellox/gpio/riser1_id_0", &opened).compare(0, 1, "0") == 0) {
            found = PLATFORM_RUSKEL_RISER;
        }
        if (opened && firstWord("/proc/pellox/gpio/riser1_id_1").compare(0, 1, "0") == 0) {
            found = PLATFORM_RUSKEL_RISER;
        }
    }
    platform_ = found;
    return static_cast<PLATFORM>(platform_);
}
