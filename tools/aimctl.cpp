// aimctl: inspects and edits the property service stand-in's store below
// GDS_ROOT (properties, event and call records, function fixtures). For
// developers and tests; bypasses the fault files. Exit status: 0 success,
// 1 failure (absent property, store error), 2 bad usage.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "AIMStore.h"

namespace {
const char kUsage[] =
    "usage: aimctl COMMAND [ARGS]\n"
    "  get NAME                      print a property's value (exit 1 when absent)\n"
    "  set NAME TYPE VALUE           store a value; TYPE is int, bool, str or crypt\n"
    "  unset NAME                    remove a property\n"
    "  list                          print NAME TYPE VALUE lines, sorted by name\n"
    "  events                        print the event record: TIME KIND|- NAME PAYLOAD-HEX|-\n"
    "  calls                         print the call record: TIME TIMEOUT|- NAME INPUT-HEX|-\n"
    "  clear-log                     empty the event and call records\n"
    "  fixture NAME ok|fail[:CODE] [OUTPUT-FILE|-]\n"
    "                                write a function fixture; the output comes\n"
    "                                from the file (\"-\": standard input)\n"
    "  help                          show this text\n"
    "The store lives under $GDS_ROOT/var/aim.\n";

int usage(const char* problem)
{
    if (problem != nullptr) {
        fprintf(stderr, "aimctl: %s\n", problem);
    }
    fputs(kUsage, stderr);
    return 2;
}

bool readAll(FILE* file, std::string& out)
{
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, file)) > 0) {
        out.append(buf, n);
    }
    return ferror(file) == 0;
}

int commandGet(const std::string& name)
{
    AIMStore::Value value;
    AIMStore::Status status = AIMStore::read(name, value);
    if (status == AIMStore::kBadName) {
        return usage("NAME is empty or too long");
    }
    if (status != AIMStore::kOk) {
        fprintf(stderr, "aimctl: %s: %s\n", AIMStore::displayText(name).c_str(), AIMStore::statusText(status));
        return 1;
    }
    fwrite(value.text.data(), 1, value.text.size(), stdout);
    fputc('\n', stdout);
    return 0;
}

int commandSet(const std::string& name, const std::string& typeName, const std::string& text)
{
    AIMStore::Type type = AIMStore::typeFromName(typeName);
    if (type == AIMStore::kNone) {
        return usage("TYPE must be int, bool, str or crypt");
    }
    AIMStore::Value value;
    if (!AIMStore::makeValue(type, text, value)) {
        fprintf(stderr,
                "aimctl: not a valid %s value (int: decimal; bool: 0, 1, true, false; text: at most %d bytes)\n",
                typeName.c_str(), AIMStore::kMaxValue);
        return 2;
    }
    AIMStore::Status status = AIMStore::write(name, value);
    if (status == AIMStore::kBadName) {
        return usage("NAME is empty or too long");
    }
    if (status != AIMStore::kOk) {
        fprintf(stderr, "aimctl: cannot store %s: %s\n", AIMStore::displayText(name).c_str(),
                AIMStore::statusText(status));
        return 1;
    }
    return 0;
}

int commandUnset(const std::string& name)
{
    AIMStore::Status status = AIMStore::remove(name);
    if (status == AIMStore::kBadName) {
        return usage("NAME is empty or too long");
    }
    if (status != AIMStore::kOk && status != AIMStore::kAbsent) {
        fprintf(stderr, "aimctl: cannot remove %s: %s\n", AIMStore::displayText(name).c_str(),
                AIMStore::statusText(status));
        return 1;
    }
    return 0;
}

int commandList()
{
    std::vector<std::pair<std::string, AIMStore::Value>> properties;
    if (!AIMStore::list(properties)) {
        fprintf(stderr, "aimctl: cannot read the property folder\n");
        return 1;
    }
    for (const auto& entry : properties) {
        std::string name;
        AIMStore::encodeName(entry.first, name);
        const AIMStore::Value& value = entry.second;
        std::string shown = value.type == AIMStore::kCrypt ? "********" : AIMStore::displayText(value.text);
        printf("%s %s %s\n", name.c_str(), AIMStore::typeName(value.type), shown.c_str());
    }
    return 0;
}

int commandRecords(bool events)
{
    std::vector<AIMStore::Record> records;
    bool ok = events ? AIMStore::readEvents(records) : AIMStore::readCalls(records);
    if (!ok) {
        fprintf(stderr, "aimctl: cannot read the %s record\n", events ? "event" : "call");
        return 1;
    }
    for (const AIMStore::Record& record : records) {
        printf("%s\n", AIMStore::formatRecord(record).c_str());
    }
    return 0;
}

int commandFixture(const std::string& name, const std::string& result, const char* outputFile)
{
    bool ok = false;
    int code = 1;
    if (result == "ok") {
        ok = true;
        code = 0;
    } else if (result.compare(0, 4, "fail") == 0) {
        if (result.size() > 4) {
            AIMStore::Value number;
            if (result[4] != ':' || !AIMStore::makeValue(AIMStore::kInt, result.substr(5), number) ||
                number.text == "0") {
                return usage("the result must be ok, fail or fail:CODE with a non-zero CODE");
            }
            code = std::stoi(number.text);
        }
    } else {
        return usage("the result must be ok, fail or fail:CODE");
    }
    std::string output;
    if (outputFile != nullptr) {
        bool fromStdin = strcmp(outputFile, "-") == 0;
        FILE* file = fromStdin ? stdin : fopen(outputFile, "rb");
        if (file == nullptr) {
            fprintf(stderr, "aimctl: cannot open %s\n", outputFile);
            return 1;
        }
        bool read = readAll(file, output);
        if (!fromStdin) {
            fclose(file);
        }
        if (!read) {
            fprintf(stderr, "aimctl: cannot read %s\n", outputFile);
            return 1;
        }
    }
    std::string encoded;
    if (!AIMStore::encodeName(name, encoded)) {
        return usage("NAME is empty or too long");
    }
    if (!AIMStore::writeFixture(name, ok, code, output)) {
        fprintf(stderr, "aimctl: cannot write the fixture of %s\n", AIMStore::displayText(name).c_str());
        return 1;
    }
    return 0;
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        return usage(nullptr);
    }
    const std::string command = argv[1];
    const int args = argc - 2;
    if (command == "help" || command == "--help" || command == "-h") {
        fputs(kUsage, stdout);
        return 0;
    }
    if (command == "get" && args == 1) {
        return commandGet(argv[2]);
    }
    if (command == "set" && args == 3) {
        return commandSet(argv[2], argv[3], argv[4]);
    }
    if (command == "unset" && args == 1) {
        return commandUnset(argv[2]);
    }
    if (command == "list" && args == 0) {
        return commandList();
    }
    if (command == "events" && args == 0) {
        return commandRecords(true);
    }
    if (command == "calls" && args == 0) {
        return commandRecords(false);
    }
    if (command == "clear-log" && args == 0) {
        if (!AIMStore::clearRecords()) {
            fprintf(stderr, "aimctl: cannot clear the records\n");
            return 1;
        }
        return 0;
    }
    if (command == "fixture" && (args == 2 || args == 3)) {
        return commandFixture(argv[2], argv[3], args == 3 ? argv[4] : nullptr);
    }
    std::string problem = "bad command line: " + command;
    return usage(problem.c_str());
}
