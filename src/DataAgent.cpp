#include "DataAgent.h"

#include <cstdio>
#include <cstdlib>
#include <cerrno>
#include <cstring>
#include <pthread.h>
#include <sys/time.h>

#include "DataHandler.h"
#include "PlatformRoot.h"
#include "RequestToken.h"

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

namespace {
// The first argument of `name`, or null when the name is absent (`absent`
// set) or has no arguments.
RequestToken* firstArgument(TokenMap& map, const char* name, bool& absent)
{
    auto it = map.find(name);
    absent = it == map.end();
    if (absent || it->second.empty()) {
        return nullptr;
    }
    return &it->second[0];
}

// Reads a leading base-10 number as strtol does; false when nothing was read.
bool leadingNumber(const std::string& text, long& number)
{
    const char* start = text.c_str();
    char* end = nullptr;
    number = strtol(start, &end, 10);
    return end != start;
}
}  // namespace

int DataAgent::setString(TokenMap& map, char* buffer, const char* name, int size, bool trim)
{
    if (size < 1) {
        return 0;
    }
    bool absent = false;
    RequestToken* arg = firstArgument(map, name, absent);
    if (arg == nullptr) {
        buffer[0] = '\0';
        return 0;
    }
    std::string text = arg->toString();
    if (trim) {
        size_t first = text.find_first_not_of(" \"");
        if (first != std::string::npos) {
            size_t last = text.find_last_not_of(" \"");
            text = text.substr(first, last - first + 1);
        }
        // A text made only of blanks and double quotes stays as it is.
    }
    setString(text, buffer, size);
    return 1;
}

void DataAgent::setString(const std::string& value, char* buffer, int size)
{
    if (size < 1) {
        return;
    }
    size_t n = value.size() < static_cast<size_t>(size - 1) ? value.size() : static_cast<size_t>(size - 1);
    memcpy(buffer, value.data(), n);
    buffer[n] = '\0';
}

int DataAgent::setInt(TokenMap& map, int& value, const char* name)
{
    bool absent = false;
    RequestToken* arg = firstArgument(map, name, absent);
    if (absent) {
        value = 0;
        return 0;
    }
    long number = 0;
    if (arg == nullptr || !leadingNumber(arg->toString(), number)) {
        return 0;
    }
    value = static_cast<int>(number);
    return 1;
}

int DataAgent::setBoolean(TokenMap& map, signed char& value, const char* name)
{
    bool absent = false;
    RequestToken* arg = firstArgument(map, name, absent);
    if (absent) {
        value = 0;
        return 0;
    }
    long number = 0;
    if (arg == nullptr || !leadingNumber(arg->toString(), number)) {
        return 0;
    }
    value = static_cast<signed char>(static_cast<unsigned long>(number) & 0xff);
    return 1;
}

int DataAgent::setByte(TokenMap& map, signed char& value, const char* name)
{
    return setBoolean(map, value, name);
}

int DataAgent::setuByte(TokenMap& map, unsigned char& value, const char* name)
{
    bool absent = false;
    RequestToken* arg = firstArgument(map, name, absent);
    if (absent) {
        value = 0;
        return 0;
    }
    long number = 0;
    if (arg == nullptr || !leadingNumber(arg->toString(), number)) {
        return 0;
    }
    value = static_cast<unsigned char>(static_cast<unsigned long>(number) & 0xff);
    return 1;
}

int DataAgent::lookupString(TokenMap& map, std::string& name, std::string& value)
{
    value.clear();
    bool absent = false;
    RequestToken* arg = firstArgument(map, name.c_str(), absent);
    if (absent) {
        return 0;
    }
    if (arg != nullptr) {
        value = arg->toString();
    }
    return 1;
}

int DataAgent::parseInt(const std::string& text, int& value)
{
    for (char c : text) {
        if (c < '0' || c > '9') {
            return 0;
        }
    }
    long number = strtol(text.c_str(), nullptr, 10);  // saturates at LONG_MAX
    value = number > 2147483647L ? 2147483647 : static_cast<int>(number);
    return 1;
}

std::string DataAgent::getValue(const char* name)
{
    char command[128];
    snprintf(command, sizeof command, "sender get=%s | outline | grep %s | awk '{print $2}'", name, name);
    FILE* pipe = popen(command, "r");
    if (pipe == nullptr) {
        return "";
    }
    char line[128];
    std::string result;
    if (fgets(line, sizeof line, pipe) != nullptr) {
        result = line;
    }
    pclose(pipe);
    return result;
}

bool DataAgent::powerOff()
{
    std::string state = getValue("pwState");
    return !state.empty() && state[0] == '0';
}

bool DataAgent::powerOn()
{
    return !powerOff();
}

int DataAgent::threadSleep(int seconds, int milliseconds)
{
    struct timeval now;
    gettimeofday(&now, nullptr);
    long long nsec = static_cast<long long>(now.tv_usec) * 1000 + static_cast<long long>(milliseconds) * 1000000;
    struct timespec deadline;
    deadline.tv_sec = now.tv_sec + seconds + static_cast<time_t>(nsec / 1000000000);
    deadline.tv_nsec = static_cast<long>(nsec % 1000000000);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
    pthread_mutex_lock(&mutex);
    // Never signalled: the wait ends at the deadline (spurious wake-ups wait again).
    while (pthread_cond_timedwait(&cond, &mutex, &deadline) == 0) {
    }
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&cond);
    pthread_mutex_destroy(&mutex);
    return 0;
}
