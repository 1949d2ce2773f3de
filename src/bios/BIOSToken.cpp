#include "BIOSToken.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PlatformRoot.h"
#include "aim_config.h"
#include "bios_util.h"
#include "mdr_region.h"

BIOSToken* BIOSToken::single_bt_instance = nullptr;

// Returned by getTokenMap for a type outside the three groups.
BIOSTokenMap emptyMap;

namespace {

const char* const kTokenDir = "/tmp/BiosTokens";
const char* const kLockFile = "/tmp/biosTokenLock";
const char* const kSchema = "/etc/Schema_updated.xml";
const char* const kBiosDocument = "/tmp/BiosTokens/bios_bmc.xml";
const char* const kSentDocument = "/tmp/BiosTokens/bmc_sent.xml";
const char* const kTokensAndValues = "/tmp/BiosTokens/tokensAndValidValues.txt";
const char* const kAllTokens = "/tmp/BiosTokens/all_tokens.txt";
const char* const kDataAvailable = "BiosTokenDataAvailable";
const char* const kDocumentEnd = "</bios-params> ";

// Property and valid-values files of one group, and its command-line class folder.
struct GroupFiles {
    BIOSTokenType type;
    const char* classDir;
    const char* property;
    const char* validValues;
    const char* priv;
};
const GroupFiles kGroups[] = {
    {BIOS_TOKEN_MAIN, "/usr/cli/classes/main", "/tmp/BiosTokens/main/property", "/tmp/BiosTokens/main/cmd/validvalues",
     "/tmp/BiosTokens/main/cmd/priv"},
    {BIOS_TOKEN_ADVANCED, "/usr/cli/classes/advanced", "/tmp/BiosTokens/advanced/property",
     "/tmp/BiosTokens/advanced/cmd/validvalues", "/tmp/BiosTokens/advanced/cmd/priv"},
    {BIOS_TOKEN_SERVER_MANAGEMENT, "/usr/cli/classes/server-management", "/tmp/BiosTokens/server-management/property",
     "/tmp/BiosTokens/server-management/cmd/validvalues", "/tmp/BiosTokens/server-management/cmd/priv"},
};

// Sizes of the texts built for the files: one property-file entry, one
// token's valid-values text, one element or line of the token lists, one
// property value, the longest option name in a valid-values text.
const int kEntrySize = 500;
const int kValidValuesSize = 250;
const int kLineSize = 200;
const int kValueSize = 100;
const int kOptionNameMax = 49;
const int kSettingNameMax = 31;

// The property file's first line: field widths for the command-line interface.
std::string propertyLayoutLine()
{
    return "++||+||" + std::string(32, '+') + "||" + std::string(32, '_') + "||" + std::string(64, '+') + "||...";
}

// Appends `text` when it fits entirely into `buffer` of `size` bytes with
// `reserve` bytes left over; returns whether it was appended.
bool appendIfFits(char* buffer, size_t size, const char* text, size_t reserve = 0)
{
    size_t used = strlen(buffer);
    size_t add = strlen(text);
    if (used + add + reserve + 1 > size) {
        return false;
    }
    memcpy(buffer + used, text, add + 1);
    return true;
}

// The first character of a pin file, or -1 when it cannot be read.
int pinValue(const char* controllerPath)
{
    FILE* f = fopen(PlatformRoot::path(controllerPath).c_str(), "r");
    if (f == nullptr) {
        return -1;
    }
    int c = fgetc(f);
    fclose(f);
    return c;
}

// Keeps schema variant `keep`, removes `drop`.
void pointSchemaAt(const char* keep, const char* drop)
{
    // The results are not examined; after the first start one variant is
    // already gone, so the commands' complaints stay off the console.
    bios_run_command("rm %s 2>/dev/null", PlatformRoot::path(drop).c_str());
    bios_run_command("mv %s %s 2>/dev/null", PlatformRoot::path(keep).c_str(), PlatformRoot::path(kSchema).c_str());
}

// The valid-values text of a token: each option name (cut to 49 characters,
// blanks as `_`), `*` after the default, a blank after each; cut to fit.
void buildValidValues(const tokenInfo* info, char* text, size_t size)
{
    text[0] = '\0';
    for (const auto& option : info->options) {
        char name[kOptionNameMax + 3];
        snprintf(name, kOptionNameMax + 1, "%s", option.first.c_str());
        replaceSpaceWithUnderscore(name);
        if (option.second.isDefault == 1) {
            strcat(name, "*");
        }
        strcat(name, " ");
        if (!appendIfFits(text, size, name)) {
            // Cut at the end of the buffer.
            size_t used = strlen(text);
            size_t n = used + 1 < size ? strnlen(name, size - used - 1) : 0;
            memcpy(text + used, name, n);
            text[used + n] = '\0';
            return;
        }
    }
}

}  // namespace

void replaceSpaceWithUnderscore(char* text)
{
    if (text == nullptr) {
        return;
    }
    for (; *text != '\0'; ++text) {
        if (*text == ' ') {
            *text = '_';
        }
    }
}

BIOSToken::BIOSToken() : m_lockFd(-1), m_writeData(nullptr), m_initDone(false)
{
    memset(&m_lock, 0, sizeof m_lock);
}

BIOSToken* BIOSToken::getBIOSTokenInstance()
{
    if (single_bt_instance == nullptr) {
        single_bt_instance = new BIOSToken();
    }
    return single_bt_instance;
}

int BIOSToken::initialize()
{
    freeBiosTokenWriteData();
    checkForDravonAndPointSchema();
    initializeMapsFromSchema();
    if (createAndInitializeBIOSTokenRWLock()) {
        return m_lockIsLink ? kPlantedLink : -1;
    }
    if (createBIOSTokenPropertyFiles() == kPlantedLink) {
        return kPlantedLink;
    }
    return 0;
}

void BIOSToken::checkForDravonAndPointSchema()
{
    FILE* f = fopen(PlatformRoot::path("/etc/product").c_str(), "r");
    if (f == nullptr) {
        return;
    }
    char platform[52] = "";
    if (fgets(platform, sizeof platform, f) == nullptr) {
        platform[0] = '\0';
    }
    fclose(f);
    platform[strcspn(platform, "\n")] = '\0';

    if (strcmp(platform, "dravon") == 0) {
        int chassis = pinValue("/proc/pellox/gpio/2u_chassis");
        if (chassis == '0') {
            pointSchemaAt("/etc/Schema_updated_dravon1.xml", "/etc/Schema_updated_dravon2.xml");
        } else if (chassis == '1') {
            pointSchemaAt("/etc/Schema_updated_dravon2.xml", "/etc/Schema_updated_dravon1.xml");
        }
    } else if (strcmp(platform, "ruskel") == 0) {
        bool riser = false;
        for (const char* pin : {"/proc/pellox/gpio/riser1_id_0", "/proc/pellox/gpio/riser1_id_1",
                                "/proc/pellox/gpio/riser2_id_0", "/proc/pellox/gpio/riser2_id_1"}) {
            if (pinValue(pin) == '0') {
                riser = true;
            }
        }
        if (riser) {
            pointSchemaAt("/etc/Schema_updated_ruskel2.xml", "/etc/Schema_updated_ruskel1.xml");
        } else {
            pointSchemaAt("/etc/Schema_updated_ruskel1.xml", "/etc/Schema_updated_ruskel2.xml");
        }
    }
}

void BIOSToken::clearTokenMaps()
{
    for (BIOSTokenMap* map : {&m_mainTokens, &m_advancedTokens, &m_serverManagementTokens}) {
        for (auto& entry : *map) {
            delete entry.second;
        }
        map->clear();
    }
}

void BIOSToken::initializeMapsFromSchema()
{
    clearTokenMaps();
    FILE* f = fopen(PlatformRoot::path(kSchema).c_str(), "r");
    if (f == nullptr) {
        return;
    }
    char guid[kBiosXmlBufferSize];
    getGuidValue(f, guid);
    getBiosParamsHeader(f);
    while (getGroup(f)) {
    }
    fclose(f);
}

bool BIOSToken::createAndInitializeBIOSTokenRWLock()
{
    if (m_lockFd >= 0) {
        close(m_lockFd);
        m_lockFd = -1;
    }
    memset(&m_lock, 0, sizeof m_lock);
    m_lock.l_type = F_WRLCK;
    m_lock.l_whence = SEEK_SET;
    m_lock.l_start = 0;
    m_lock.l_len = 0;
    m_lock.l_pid = getpid();
    const std::string path = PlatformRoot::path(kLockFile);
    // A fixed name in the shared /tmp: a planted symbolic link is refused.
    m_lockFd = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_SYNC | O_CLOEXEC | O_NOFOLLOW, 0644);
    m_lockIsLink = m_lockFd < 0 && errno == ELOOP;
    if (m_lockIsLink) {
        bios_syslog("lock file %s is a symbolic link, not followed\n", path.c_str());
    }
    if (m_lockFd < 0) {
        return true;
    }
    bios_syslog("Opened lock file-%s-with fd-%d\n", path.c_str(), m_lockFd);
    return false;
}

bool BIOSToken::applyLock(short type)
{
    if (m_lockFd < 0) {
        return true;
    }
    m_lock.l_type = type;
    int rc;
    do {
        rc = fcntl(m_lockFd, F_SETLKW, &m_lock);
    } while (rc != 0 && errno == EINTR);
    return rc != 0;
}

bool BIOSToken::getBIOSTokenPSLockForReading()
{
    return applyLock(F_RDLCK);
}

bool BIOSToken::getBIOSTokenPSLockForWriting()
{
    return applyLock(F_WRLCK);
}

bool BIOSToken::unlockBIOSTokenPSLock()
{
    return applyLock(F_UNLCK);
}

BIOSTokenMap& BIOSToken::getTokenMap(BIOSTokenType type)
{
    switch (type) {
        case BIOS_TOKEN_MAIN:
            return m_mainTokens;
        case BIOS_TOKEN_ADVANCED:
            return m_advancedTokens;
        case BIOS_TOKEN_SERVER_MANAGEMENT:
            return m_serverManagementTokens;
        default:
            return emptyMap;
    }
}

int BIOSToken::createBIOSTokenPropertyFiles()
{
    const std::string dir = PlatformRoot::path(kTokenDir);
    if (mkdir(dir.c_str(), 0755) != 0) {
        int error = errno;
        bios_syslog("Creating dir %s failed\n", dir.c_str());
        struct stat st;
        // Something already there (a planted link, also a dangling one, or a
        // file) is judged below; only a name that is not there at all means
        // the folder cannot be made.
        if (lstat(dir.c_str(), &st) != 0) {
            bios_syslog("mkdir %s : FAILED: errno = %d\n", dir.c_str(), error);
            return error;
        }
    }
    // The folder sits in the shared /tmp: one another user made first, or a
    // symbolic link planted under its name, is not written into.
    if (!PlatformRoot::ownFolder(dir)) {
        bios_syslog("%s is a symbolic link or not this user's folder, not used\n", dir.c_str());
        return kPlantedLink;
    }
    for (const GroupFiles& group : kGroups) {
        bios_run_command("cp -r %s %s", PlatformRoot::path(group.classDir).c_str(), dir.c_str());
    }
    for (const GroupFiles& group : kGroups) {
        chmod(PlatformRoot::path(group.property).c_str(), 0755);
        chmod(PlatformRoot::path(group.priv).c_str(), 0777);
    }
    for (const GroupFiles& group : kGroups) {
        writePropertyAndValidValuesFiles(group.property, group.validValues, group.type);
    }
    return 0;
}

void BIOSToken::writePropertyAndValidValuesFiles(const char* propertyPath, const char* validValuesPath,
                                                 BIOSTokenType type)
{
    if (propertyPath == nullptr || validValuesPath == nullptr) {
        return;
    }
    FILE* property = PlatformRoot::openNoFollow(PlatformRoot::path(propertyPath), "w");
    FILE* validValues = PlatformRoot::openNoFollow(PlatformRoot::path(validValuesPath), "w");
    if (property != nullptr) {
        fputs(propertyLayoutLine().c_str(), property);
        fprintf(property, "\n00  %c  %-32s  %-32s ", 'K', "setupParams", "Set-up parameters");
        for (const auto& token : getTokenMap(type)) {
            char valid[kValidValuesSize];
            buildValidValues(token.second, valid, sizeof valid);
            char setting[kSettingNameMax + 1];
            snprintf(setting, sizeof setting, "%s", token.second->settingName.c_str());
            char entry[kEntrySize];
            snprintf(entry, sizeof entry, "\n00  %c  %-32s  %-32s  %-64s  %s", 'A', token.first.c_str(), setting,
                     "validate", valid);
            fputs(entry, property);
            if (validValues != nullptr) {
                fprintf(validValues, "%s %s\n", token.first.c_str(), valid);
            }
        }
        fclose(property);
    }
    if (validValues != nullptr) {
        fclose(validValues);
    }
}

bool BIOSToken::isSchemaToken(const char* name)
{
    if (name == nullptr) {
        return false;
    }
    return m_mainTokens.count(name) != 0 || m_advancedTokens.count(name) != 0 ||
           m_serverManagementTokens.count(name) != 0;
}

bool BIOSToken::readBIOSTokenRegionAndGetValues(tokenVal* values, int* count)
{
    if (values == nullptr || count == nullptr) {
        return false;
    }
    *count = 0;
    // An earlier copy of the document is read when this fetch fails.
    readMDRRegionForBiosTokens();
    const std::string path = PlatformRoot::path(kBiosDocument);
    if (access(path.c_str(), F_OK) != 0) {
        return false;
    }
    FILE* f = fopen(path.c_str(), "r");
    if (f == nullptr) {
        return false;
    }
    char name[kBiosXmlBufferSize];
    char value[kBiosXmlBufferSize];
    auto keep = [&]() {
        char* n = strdup(name);
        char* v = strdup(value);
        if (n == nullptr || v == nullptr) {
            free(n);
            free(v);
            return;
        }
        values[*count].name = n;
        values[*count].value = v;
        ++*count;
    };
    // A document that does not begin with its declaration and
    // "<bios-params", or whose list is empty, yields no token at all: the
    // rest of it is not read.
    if (getFirstToken(f, name, value)) {
        keep();
        // Tokens beyond the array's capacity are left out.
        while (*count < kMaxTokenValues && getNextToken(f, name, value)) {
            keep();
        }
    }
    fclose(f);
    return *count >= 1;
}

void BIOSToken::appendTokenAndValuesForMap(BIOSTokenType type, char* document)
{
    if (document == nullptr) {
        return;
    }
    for (const auto& token : getTokenMap(type)) {
        // The property service's unbounded getter writes up to 256 bytes;
        // the bounded one keeps to this 100-byte buffer.
        char selected[kValueSize];
        int value = 255;
        if (aim_config_get_str_n(token.first.c_str(), selected, sizeof selected)) {
            auto option = token.second->options.find(selected);
            if (option != token.second->options.end()) {
                value = option->second.value;
            }
        }
        char element[kLineSize];
        snprintf(element, sizeof element, "<%s value=\"%d\" />", token.first.c_str(), value);
        // Room is kept for the closing tag, so the document stays whole.
        if (!appendIfFits(document, kDocumentSize, element, strlen(kDocumentEnd))) {
            bios_syslog("BIOS Token - document for the BIOS full, %s left out\n", token.first.c_str());
        }
    }
}

bool BIOSToken::createBmcToBiosXmlData()
{
    freeBiosTokenWriteData();
    m_writeData = static_cast<char*>(malloc(kDocumentSize));
    if (m_writeData == nullptr) {
        return false;
    }
    m_writeData[0] = '\0';
    appendIfFits(m_writeData, kDocumentSize, "<?xml version='1.0' ?> ");
    appendIfFits(m_writeData, kDocumentSize, "<bios-params> ");
    bool granted = !getBIOSTokenPSLockForReading();
    if (granted) {
        appendTokenAndValuesForMap(BIOS_TOKEN_MAIN, m_writeData);
        appendTokenAndValuesForMap(BIOS_TOKEN_ADVANCED, m_writeData);
        appendTokenAndValuesForMap(BIOS_TOKEN_SERVER_MANAGEMENT, m_writeData);
        unlockBIOSTokenPSLock();
    }
    appendIfFits(m_writeData, kDocumentSize, kDocumentEnd);
    FILE* f = PlatformRoot::openNoFollow(PlatformRoot::path(kSentDocument), "w");
    if (f != nullptr) {
        fputs(m_writeData, f);
        fclose(f);
    }
    return granted;
}

bool BIOSToken::writeBMCToBIOSMDRRegion()
{
    if (m_writeData == nullptr) {
        return false;
    }
    return writeMdrRegion(kMdrRegionBmcToBios, m_writeData, static_cast<int>(strlen(m_writeData))) == 0;
}

bool BIOSToken::sendBIOSTokenDataToMDRRegion()
{
    aim_config_set_bool(kDataAvailable, true, 1);
    bool written = false;
    if (createBmcToBiosXmlData()) {
        written = writeBMCToBIOSMDRRegion();
    }
    freeBiosTokenWriteData();
    return written;
}

void BIOSToken::freeBiosTokenWriteData()
{
    free(m_writeData);
    m_writeData = nullptr;
}

void BIOSToken::createOnlyTokensFile()
{
    // Lines accumulate across starts of the process. Without this file (or
    // without the list buffer) the other file is still written.
    FILE* values = PlatformRoot::openNoFollow(PlatformRoot::path(kTokensAndValues), "a");
    char* list = static_cast<char*>(calloc(kDocumentSize, 1));
    for (BIOSTokenType type : {BIOS_TOKEN_MAIN, BIOS_TOKEN_ADVANCED, BIOS_TOKEN_SERVER_MANAGEMENT}) {
        for (const auto& token : getTokenMap(type)) {
            if (list != nullptr) {
                std::string line = token.first + "\n";
                appendIfFits(list, kDocumentSize, line.c_str());
            }
            if (values != nullptr) {
                char line[kLineSize];
                snprintf(line, sizeof line, "%s ", token.first.c_str());
                for (const auto& option : token.second->options) {
                    char number[16];
                    snprintf(number, sizeof number, ":%d ", option.second.value);
                    if (!appendIfFits(line, sizeof line, number, 1)) {
                        break;  // the line keeps room for its line feed
                    }
                }
                strcat(line, "\n");
                fputs(line, values);
            }
        }
        if (list != nullptr && type != BIOS_TOKEN_SERVER_MANAGEMENT) {
            appendIfFits(list, kDocumentSize, "#");
        }
    }
    FILE* all = PlatformRoot::openNoFollow(PlatformRoot::path(kAllTokens), "w");
    if (all != nullptr) {
        if (list != nullptr) {
            fputs(list, all);
        }
        fclose(all);
    }
    if (values != nullptr) {
        fclose(values);
    }
    free(list);
}

void BIOSToken::updateToDefaults(BIOSTokenType type)
{
    for (const auto& token : getTokenMap(type)) {
        for (const auto& option : token.second->options) {
            if (option.second.isDefault == 1) {
                aim_config_set_str(token.first.c_str(), option.first.c_str(), 1);
                break;
            }
        }
    }
}

void BIOSToken::printMap(BIOSTokenType type)
{
    const BIOSTokenMap& map = getTokenMap(type);
    bios_syslog("This is size of map - %d\n", static_cast<int>(map.size()));
    for (const auto& token : map) {
        bios_syslog("TargetToken: %s  SettingName: %s\n", token.first.c_str(), token.second->settingName.c_str());
        for (const auto& option : token.second->options) {
            bios_syslog("Option:%s Value:%d isDefault:%d\n", option.first.c_str(), option.second.value,
                        option.second.isDefault);
        }
    }
}
