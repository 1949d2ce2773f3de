// BIOSToken: the process-wide store of the BIOS setup tokens: the catalogue
// read from the BIOS schema (three token maps), the record lock on
// "/tmp/biosTokenLock" shared with other controller processes, and the files
// under "/tmp/BiosTokens" that publish the tokens. Used by the BIOS token
// gatherer thread only; the store owns its maps and their tokenInfo objects
// and lives until the process ends.
#pragma once

#include <fcntl.h>

#include "bios_schema.h"

// One token as read from the BIOS's document: heap copies of its name and
// value, owned by the receiver (free() both).
struct tokenVal {
    char* name;
    char* value;
};

class BIOSToken {
public:
    // Capacity of the value array given to readBIOSTokenRegionAndGetValues.
    static constexpr int kMaxTokenValues = 150;
    // Document to the BIOS and list of identifiers.
    static constexpr int kDocumentSize = 6144;

    // The singleton, created on first call; never destroyed.
    static BIOSToken* getBIOSTokenInstance();

    // Selects the schema, fills the maps, opens the lock file and writes the
    // token files. 0, -1 when the lock file cannot be opened, or
    // kPlantedLink when the lock file or the token folder in the shared /tmp
    // is a symbolic link (or another user's folder): then nothing is written.
    // Calling it again (a test) rebuilds everything from the files in place.
    int initialize();
    static constexpr int kPlantedLink = -2;
    // On "dravon" and "ruskel" controllers renames the schema variant that
    // fits the hardware onto "/etc/Schema_updated.xml".
    void checkForDravonAndPointSchema();
    // Fills the three maps from "/etc/Schema_updated.xml" (empty without it).
    void initializeMapsFromSchema();
    // Empties the three maps and frees their tokens.
    void clearTokenMaps();

    // Lock methods: false when done, true on failure (the fcntl record lock waits).
    bool createAndInitializeBIOSTokenRWLock();
    bool getBIOSTokenPSLockForReading();
    bool getBIOSTokenPSLockForWriting();
    bool unlockBIOSTokenPSLock();

    // The map of `type`; an empty map for any other value.
    BIOSTokenMap& getTokenMap(BIOSTokenType type);
    // Whether the BIOS schema defines a token of this name (any group).
    bool isSchemaToken(const char* name);

    // Creates "/tmp/BiosTokens" with the command-line class folders and the
    // property and valid-values files of the three groups. 0, the errno of
    // a failed directory creation, or kPlantedLink (nothing written).
    int createBIOSTokenPropertyFiles();
    void writePropertyAndValidValuesFiles(const char* propertyPath, const char* validValuesPath, BIOSTokenType type);

    bool getInitDone() const { return m_initDone; }
    void setInitDone(bool done) { m_initDone = done; }

    // Fetches the BIOS's document and reads its tokens into `values` (which
    // holds kMaxTokenValues entries; further tokens are left out). True when
    // at least one token was read.
    bool readBIOSTokenRegionAndGetValues(tokenVal* values, int* count);

    // Appends one "<token value="n" />" element per token of `type` to
    // `document` (a kDocumentSize buffer, room kept for the closing tag).
    void appendTokenAndValuesForMap(BIOSTokenType type, char* document);
    // Builds the document for the BIOS from the token properties; true when
    // the read lock was granted (the values are then included).
    bool createBmcToBiosXmlData();
    // Writes the built document to MDR region 2; true when the write succeeded.
    bool writeBMCToBIOSMDRRegion();
    // Marks BIOS token data available, builds and writes the document; true
    // when it was built and written.
    bool sendBIOSTokenDataToMDRRegion();
    void freeBiosTokenWriteData();

    // "/tmp/BiosTokens/tokensAndValidValues.txt" (appended) and "all_tokens.txt".
    void createOnlyTokensFile();
    // Sets every token of the group that has a default option to that option.
    void updateToDefaults(BIOSTokenType type);
    // Logs the group's catalogue to syslog.
    void printMap(BIOSTokenType type);

    static BIOSToken* single_bt_instance;

private:
    BIOSToken();
    BIOSToken(const BIOSToken&) = delete;
    BIOSToken& operator=(const BIOSToken&) = delete;

    bool applyLock(short type);

    BIOSTokenMap m_mainTokens;
    BIOSTokenMap m_advancedTokens;
    BIOSTokenMap m_serverManagementTokens;
    struct flock m_lock;
    int m_lockFd;
    bool m_lockIsLink = false;  // the lock file's name held a symbolic link
    char* m_writeData;
    bool m_initDone;
};

// Replaces every blank of `text` by `_`; a null text is left alone.
void replaceSpaceWithUnderscore(char* text);
