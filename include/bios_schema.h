// bios_schema: the forward-only reader of the BIOS schema ("/etc/Schema_updated.xml")
// and of the BIOS's token document ("/tmp/BiosTokens/bios_bmc.xml"). It reads a
// FILE* one character at a time, understands only the fixed shapes of these two
// documents and takes attribute values by position. Used by the BIOS token
// gatherer thread only; the schema readers fill the maps of the BIOSToken store.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

class BIOSToken;

// The three token groups of the schema; also the index of the store's maps.
enum BIOSTokenType { BIOS_TOKEN_MAIN = 0, BIOS_TOKEN_ADVANCED = 1, BIOS_TOKEN_SERVER_MANAGEMENT = 2 };

struct valueAndDefault {
    int32_t value;      // the option's number as the BIOS knows it; 255 for a value text that is not all digits
    int32_t isDefault;  // 1 for the default option
};

// One token (setting) of the schema. Created by getNewSetting, owned by its token map.
struct tokenInfo {
    std::string helpText;  // not filled from the schema
    std::string settingName;
    std::map<std::string, valueAndDefault> options;  // option name -> value
};

// Target token (the token's identifier and property name) -> its description.
typedef std::map<std::string, tokenInfo*> BIOSTokenMap;

// Every element name, attribute value and token value is read into this many
// bytes (99 characters and the terminator); an option's value text into
// kBiosOptionValueSize. Longer texts are cut. Output buffers of the readers
// must hold kBiosXmlBufferSize bytes.
const int kBiosXmlBufferSize = 100;
const int kBiosOptionValueSize = 28;

// The store whose maps getGroup fills; set by getBiosParamsHeader.
extern BIOSToken* BTInstance;

// The next character, or -1 at end of file or for a null file.
int xmlGetChar(FILE* file);
// The next character that is not a tab, line feed, carriage return or space; -1 as above.
int xmlGetNonWhiteSpace(FILE* file);

// Schema, in this order on one open file. List readers return 1 when an
// element was read and more may follow, 0 when the list has ended (also for a
// malformed or truncated file). All return 0 for a null file or argument.
int getGuidValue(FILE* file, char* guid);
int getBiosParamsHeader(FILE* file);
int getGroup(FILE* file);
int getSubGroup(FILE* file, BIOSTokenMap& map);
int getSetting(FILE* file, char* targetToken, char* settingName, BIOSTokenMap& map);
int getOption(FILE* file, char* optionName, int* value, int* isDefault);
// A new heap tokenInfo with that setting name and no options; null for a null name.
tokenInfo* getNewSetting(char* settingName);

// Token document: its head and first token, then one token per call.
int getFirstToken(FILE* file, char* tokenName, char* value);
int getNextToken(FILE* file, char* tokenName, char* value);
