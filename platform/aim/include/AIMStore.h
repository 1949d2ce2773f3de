// AIMStore: the file store behind the property service stand-in (AIMClient,
// the aim_config_* functions and aimctl). Every call resolves its paths below
// the platform root at that moment; any thread, any process. The service
// operations keep the values they read (and the fault files) for up to
// PlatformRoot::recheckMs(), under a lock; this process's own writes update
// them at once.
// Layout and file formats are described in docs/simulator.md.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

class AIMStore {
public:
    enum Type { kNone = 0, kInt, kBool, kStr, kCrypt };

    // Outcome of the service operations below.
    enum Status { kOk = 0, kAbsent, kWrongType, kBadName, kBadValue, kFault, kCorrupt, kIoError };

    // A stored value. `text` is canonical: decimal for int, "1"/"0" for bool,
    // the clear text for str and crypt.
    struct Value {
        Type type = kNone;
        std::string text;
    };

    // One line of the event or call record. `number` is the event kind or
    // the call's time-out; `hasNumber` is false when it was not given.
    struct Record {
        std::string time;  // seconds.microseconds since the epoch
        bool hasNumber = false;
        int number = 0;
        std::string name;     // decoded
        std::string payload;  // raw bytes
    };

    static constexpr int kMaxValue = 255;            // longest text value
    static constexpr int kMaxEncodedName = 240;      // longest encoded name (file name)
    static constexpr int kMaxPayload = 1024 * 1024;  // longest event payload or function input
    static constexpr int kMaxPropertyFile = 4096;    // a valid property file is far smaller

    // Results of callFunction besides 0 (success) and a fixture's own code.
    static constexpr int kUnknownFunction = -1;
    static constexpr int kBadFixture = -2;
    static constexpr int kBadArguments = -3;
    static constexpr int kStoreError = -4;

    static const char* typeName(Type type);
    static Type typeFromName(const std::string& name);
    static const char* statusText(Status status);

    // Names become file names: letters, digits, '_' and '-' stay, '.' stays
    // unless it comes first, every other byte becomes %XX (upper-case hex).
    // False for an empty name or one whose encoding exceeds kMaxEncodedName.
    static bool encodeName(const std::string& name, std::string& encoded);
    // Accepts only the canonical encoding, so each file maps to one name.
    static bool decodeName(const std::string& encoded, std::string& name);

    // Property file: "<type>\n<value>\n". str values escape '%', control bytes
    // and DEL as %XX; crypt values are hex of an obfuscated text. Parsing takes
    // any bytes and returns false for anything that is not a valid value.
    static bool parseValue(const char* data, size_t size, Value& value);
    static std::string formatValue(const Value& value);
    // Checks and normalises a value given as text ("true" -> "1" for a bool).
    static bool makeValue(Type type, const std::string& text, Value& value);

    // Function fixture: first line "ok", "fail" or "fail <code>" (code a
    // non-zero int), the output after the first line end. `outputOffset` is
    // where the output begins (size when there is none).
    static bool parseFixture(const char* data, size_t size, bool& ok, int& code, size_t& outputOffset);

    // Record line without its line end: "<time> <number|-> <name> <hex|->".
    static bool parseRecord(const std::string& line, Record& record);
    static std::string formatRecord(const Record& record);

    // Text for display: '%', control bytes and DEL as %XX.
    static std::string displayText(const std::string& text);
    static std::string toHex(const void* data, size_t size);

    // --- raw store access (no faults), for the client and aimctl ---
    static bool ensureFolders();
    // Removes temp files that writers killed mid-write left behind, once they
    // are older than `maxAgeSeconds` (younger ones may still be in use).
    static void removeStaleTemps(int maxAgeSeconds);
    static Status read(const std::string& name, Value& value);
    // Atomic replace: temp file in the same folder, fsync, rename.
    static Status write(const std::string& name, const Value& value);
    static Status remove(const std::string& name);
    // Every readable property, sorted by name; unreadable files are skipped.
    static bool list(std::vector<std::pair<std::string, Value>>& properties);
    // Whether the fault file "/var/aim/faults/<kind>.<encoded name>" exists
    // (just "<kind>" when name is null). Looked up in a snapshot of the
    // folder taken at most once per PlatformRoot::recheckMs().
    static bool fault(const char* kind, const char* name);

    static bool readEvents(std::vector<Record>& records);
    static bool readCalls(std::vector<Record>& records);
    // Empties both records.
    static bool clearRecords();
    static bool writeFixture(const std::string& name, bool ok, int code, const std::string& output);

    // --- the service operations, with the client's type rules and faults ---
    static Status getInt(const char* name, int& value);
    static Status getBool(const char* name, bool& value);
    static Status getText(const char* name, std::string& value);  // any type but crypt
    static Status getCrypt(const char* name, std::string& value);
    static Status setInt(const char* name, int value);
    static Status setBool(const char* name, bool value);
    static Status setText(const char* name, const char* value);
    static Status setCrypt(const char* name, const char* value);
    // Records and raises an event; `kind` is null when none is given. A
    // refused event (bad arguments, fault file) is not recorded.
    static Status raiseEvent(const int* kind, const char* name, const void* data, int length);
    // Records the call (`timeout` null when none is given) and answers from
    // the fixture. Returns 0 with min(output, outCapacity) bytes in `out`
    // and their count in *outLength, or non-zero.
    static int callFunction(const char* name, const void* in, int inLength, void* out, int outCapacity, int* outLength,
                            const int* timeout);

private:
    static Status getValue(const char* name, Value& value);
    static Status setValue(const char* name, Type type, const std::string& text);
    static bool appendRecord(const char* file, const Record& record);
    static bool readRecords(const char* file, std::vector<Record>& records);
};
