#include "bios_schema.h"

#include <cstring>

#include "BIOSToken.h"
#include "bios_util.h"

BIOSToken* BTInstance = nullptr;

namespace {

const int kNoFirstChar = -2;  // readName: the name starts with the next character read

// Reads on until `<` or end of file; returns that character.
int skipToLt(FILE* file)
{
    int c;
    do {
        c = xmlGetNonWhiteSpace(file);
    } while (c != '<' && c != -1);
    return c;
}

// Reads a name up to a space, `>` or end of file (the stopper is consumed)
// into `buf` (kBiosXmlBufferSize bytes, cut beyond). `first`, unless
// kNoFirstChar, is the name's first character, already read. Returns the
// last character read.
int readName(FILE* file, char* buf, int first)
{
    int n = 0;
    if (first != kNoFirstChar) {
        if (first == -1) {
            buf[0] = '\0';
            return -1;
        }
        buf[n++] = static_cast<char>(first);
    }
    int c;
    while ((c = xmlGetChar(file)) != -1 && c != ' ' && c != '>') {
        if (n < kBiosXmlBufferSize - 1) {
            buf[n++] = static_cast<char>(c);
        }
    }
    buf[n] = '\0';
    return c;
}

// Reads up to the next `=`, then up to the next double quote, then collects
// the value up to the closing quote (or a blank when `stopAtBlank`) into
// `buf` of `size` bytes, cut beyond. Returns the last character read.
int readQuoted(FILE* file, char* buf, int size, bool stopAtBlank)
{
    int c;
    while ((c = xmlGetChar(file)) != -1 && c != '=') {
    }
    if (c != -1) {
        while ((c = xmlGetChar(file)) != -1 && c != '"') {
        }
    }
    int n = 0;
    if (c != -1) {
        while ((c = xmlGetChar(file)) != -1 && c != '"' && !(stopAtBlank && c == ' ')) {
            if (n < size - 1) {
                buf[n++] = static_cast<char>(c);
            }
        }
    }
    buf[n] = '\0';
    return c;
}

// The option's number: the value text read as decimal digits from its last
// character backwards; 255 when any character is not a digit, 0 when empty.
int32_t optionValue(const char* text)
{
    uint32_t value = 0;
    uint32_t weight = 1;
    for (int i = static_cast<int>(strlen(text)) - 1; i >= 0; --i) {
        if (text[i] < '0' || text[i] > '9') {
            return 255;
        }
        value += static_cast<uint32_t>(text[i] - '0') * weight;
        weight *= 10;
    }
    return static_cast<int32_t>(value);
}

BIOSToken* store()
{
    if (BTInstance == nullptr) {
        BTInstance = BIOSToken::getBIOSTokenInstance();
    }
    return BTInstance;
}

}  // namespace

int xmlGetChar(FILE* file)
{
    if (file == nullptr) {
        return -1;
    }
    int c = fgetc(file);
    return c == EOF ? -1 : c;
}

int xmlGetNonWhiteSpace(FILE* file)
{
    int c;
    do {
        c = xmlGetChar(file);
    } while (c == '\t' || c == '\n' || c == '\r' || c == ' ');
    return c;
}

int getGuidValue(FILE* file, char* guid)
{
    if (file == nullptr || guid == nullptr) {
        return 0;
    }
    char name[kBiosXmlBufferSize];
    if (skipToLt(file) == -1) {
        return 0;
    }
    // The declaration ("<?xml ... ?>") must come first: the name compared
    // then starts at the `<` after it.
    int c = xmlGetNonWhiteSpace(file);
    if (c == '?') {
        c = skipToLt(file);
    }
    c = readName(file, name, c);
    if (c == -1 || strcmp(name, "<schema") != 0) {
        return 0;
    }
    c = readName(file, name, skipToLt(file));
    if (c == -1 || strcmp(name, "<bios-header") != 0) {
        return 0;
    }
    bool found = false;
    skipToLt(file);
    c = readName(file, name, kNoFirstChar);
    if (c != -1 && strcmp(name, "guid") == 0) {
        char value[kBiosXmlBufferSize];
        c = readQuoted(file, value, sizeof value, true);
        memcpy(guid, value, sizeof value);
        found = c != -1;
    }
    do {
        if (skipToLt(file) == -1) {
            return 0;
        }
        c = readName(file, name, kNoFirstChar);
    } while (c != -1 && strcmp(name, "/bios-header") != 0);
    return found && c != -1 ? 1 : 0;
}

int getBiosParamsHeader(FILE* file)
{
    if (file == nullptr) {
        return 0;
    }
    BTInstance = BIOSToken::getBIOSTokenInstance();
    char name[kBiosXmlBufferSize];
    int c = readName(file, name, skipToLt(file));
    return c != -1 && strcmp(name, "<bios-params") == 0 ? 1 : 0;
}

int getGroup(FILE* file)
{
    if (file == nullptr) {
        return 0;
    }
    char name[kBiosXmlBufferSize];
    readName(file, name, skipToLt(file));
    if (strcmp(name, "<group") != 0) {
        return 0;
    }
    char group[kBiosXmlBufferSize];
    int c = readQuoted(file, group, sizeof group, false);
    char targetToken[kBiosXmlBufferSize];
    char settingName[kBiosXmlBufferSize];
    if (strcmp(group, "Main") == 0) {
        BIOSTokenMap& map = store()->getTokenMap(BIOS_TOKEN_MAIN);
        while (getSetting(file, targetToken, settingName, map)) {
        }
    } else if (strcmp(group, "Server Management") == 0) {
        BIOSTokenMap& map = store()->getTokenMap(BIOS_TOKEN_SERVER_MANAGEMENT);
        while (getSetting(file, targetToken, settingName, map)) {
        }
    } else if (strcmp(group, "Advanced") == 0) {
        BIOSTokenMap& map = store()->getTokenMap(BIOS_TOKEN_ADVANCED);
        while (getSubGroup(file, map)) {
        }
    } else {
        bios_syslog("Important - hitting this else!\n");
    }
    return c != -1 ? 1 : 0;
}

int getSubGroup(FILE* file, BIOSTokenMap& map)
{
    if (file == nullptr) {
        return 0;
    }
    char name[kBiosXmlBufferSize];
    readName(file, name, skipToLt(file));
    if (strcmp(name, "<subgroup") != 0) {
        return 0;
    }
    char subgroup[kBiosXmlBufferSize];
    int c = readQuoted(file, subgroup, sizeof subgroup, false);
    char targetToken[kBiosXmlBufferSize];
    char settingName[kBiosXmlBufferSize];
    while (getSetting(file, targetToken, settingName, map)) {
    }
    return c != -1 ? 1 : 0;
}

int getSetting(FILE* file, char* targetToken, char* settingName, BIOSTokenMap& map)
{
    if (file == nullptr || targetToken == nullptr || settingName == nullptr) {
        return 0;
    }
    char name[kBiosXmlBufferSize];
    skipToLt(file);
    readName(file, name, kNoFirstChar);
    if (strcmp(name, "setting") != 0) {
        return 0;
    }
    char value[kBiosXmlBufferSize];
    readQuoted(file, value, sizeof value, true);
    memcpy(targetToken, value, sizeof value);
    int c = readQuoted(file, value, sizeof value, false);
    memcpy(settingName, value, sizeof value);

    tokenInfo* info = getNewSetting(settingName);
    if (info == nullptr) {
        return 0;
    }
    // A later setting with the same target token replaces the earlier one.
    tokenInfo*& slot = map[targetToken];
    delete slot;
    slot = info;

    char optionName[kBiosXmlBufferSize];
    int optionNumber = 0;
    int isDefault = 0;
    while (getOption(file, optionName, &optionNumber, &isDefault)) {
        info->options[optionName] = valueAndDefault{optionNumber, isDefault};
    }
    return c != -1 ? 1 : 0;
}

int getOption(FILE* file, char* optionName, int* value, int* isDefault)
{
    if (file == nullptr || optionName == nullptr || value == nullptr || isDefault == nullptr) {
        return 0;
    }
    *isDefault = 0;
    char name[kBiosXmlBufferSize];
    skipToLt(file);
    readName(file, name, kNoFirstChar);
    if (strcmp(name, "option") != 0) {
        return 0;
    }
    char text[kBiosXmlBufferSize];
    readQuoted(file, text, sizeof text, false);
    memcpy(optionName, text, sizeof text);
    char valueText[kBiosOptionValueSize];
    int c = readQuoted(file, valueText, sizeof valueText, false);
    *value = optionValue(valueText);

    // The word "default" anywhere before the element's `/` marks the default
    // option; a sliding window finds it however long the text is.
    static const char kWord[] = "default";
    const int wordLength = sizeof kWord - 1;
    char window[sizeof kWord] = {0};
    int seen = 0;
    if (c != -1) {
        while ((c = xmlGetChar(file)) != -1 && c != '/') {
            memmove(window, window + 1, wordLength - 1);
            window[wordLength - 1] = static_cast<char>(c);
            if (++seen >= wordLength && memcmp(window, kWord, wordLength) == 0) {
                *isDefault = 1;
            }
        }
    }
    return c != -1 ? 1 : 0;
}

tokenInfo* getNewSetting(char* settingName)
{
    if (settingName == nullptr) {
        return nullptr;
    }
    tokenInfo* info = new (std::nothrow) tokenInfo();
    if (info != nullptr) {
        info->settingName = settingName;
    }
    return info;
}

int getFirstToken(FILE* file, char* tokenName, char* value)
{
    if (file == nullptr || tokenName == nullptr || value == nullptr) {
        return 0;
    }
    if (skipToLt(file) == -1) {
        return 0;
    }
    int c = xmlGetNonWhiteSpace(file);
    if (c == '?') {
        c = skipToLt(file);
    }
    char name[kBiosXmlBufferSize];
    c = readName(file, name, c);
    if (c == -1 || strcmp(name, "<bios-params") != 0) {
        return 0;
    }
    fputs("Header is correct \n", stdout);
    skipToLt(file);
    c = readName(file, name, kNoFirstChar);
    // An empty list has no first token: the closing tag is never taken for one.
    if (c == -1 || strcmp(name, "/bios-params") == 0) {
        return 0;
    }
    memcpy(tokenName, name, sizeof name);
    char text[kBiosXmlBufferSize];
    c = readQuoted(file, text, sizeof text, true);
    memcpy(value, text, sizeof text);
    return c != -1 ? 1 : 0;
}

int getNextToken(FILE* file, char* tokenName, char* value)
{
    if (file == nullptr || tokenName == nullptr || value == nullptr) {
        return 0;
    }
    char name[kBiosXmlBufferSize];
    skipToLt(file);
    int c = readName(file, name, kNoFirstChar);
    memcpy(tokenName, name, sizeof name);
    if (c == -1 || strcmp(name, "/bios-params") == 0) {
        return 0;
    }
    char text[kBiosXmlBufferSize];
    c = readQuoted(file, text, sizeof text, false);
    memcpy(value, text, sizeof text);
    return c != -1 ? 1 : 0;
}
