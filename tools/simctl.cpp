// simctl: switches named scenarios of the simulated controller below
// GDS_ROOT: each puts the stand-ins into a state a page must show (a failed
// power supply, a card tool that answers with an error, ...) through their
// own fault files and fixtures, and takes it back. Scenarios are data, one
// file each (sim/scenarios/NAME.scenario); see docs/simulator.md.
//
//   simctl list [--json]      every scenario, whether it is applied, its description
//   simctl apply NAME         make its changes (the files it touches are saved first)
//   simctl clear NAME         put the saved files back
//   simctl clear-all          clear every applied scenario, the last applied first
//
// Actions of a scenario file, one a line after its "description:" line:
//   write PATH TEXT                  a file with TEXT (\n, \t, \\, \xHH escapes)
//   remove PATH                      remove a file
//   property NAME int|bool|str VALUE a property service value
//   key PATH KEY VALUE               set "KEY: VALUE" in a file of such lines
//   drop-first PATH ARRAY KEY VALUE  JSON: drop the first element of ARRAY whose KEY is VALUE
//   bump PATH KEY                    JSON: raise the number KEY by one (255 wraps to 1)
//
// Exit status: 0 success, 1 failure or unknown scenario, 2 bad usage.
// The saved files of an applied scenario live in /var/sim/scenarios/NAME/.
#include <cjson/cJSON.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "PlatformRoot.h"

namespace {

const char kSuffix[] = ".scenario";
const char kState[] = "/var/sim/scenarios";

struct Scenario {
    std::string name;
    std::string description;
    std::vector<std::vector<std::string>> actions;  // words; a write's text is its last word
};

bool error(const std::string& text)
{
    fprintf(stderr, "simctl: %s\n", text.c_str());
    return false;
}

bool readFile(const std::string& path, std::string& text)
{
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        return false;
    }
    char buf[4096];
    size_t n;
    text.clear();
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
        text.append(buf, n);
    }
    bool ok = ferror(f) == 0;
    fclose(f);
    return ok;
}

bool makeDirs(const std::string& path)
{
    for (size_t pos = 1; pos <= path.size(); pos++) {
        if (pos == path.size() || path[pos] == '/') {
            if (mkdir(path.substr(0, pos).c_str(), 0755) != 0 && errno != EEXIST) {
                return error("cannot create " + path.substr(0, pos) + ": " + strerror(errno));
            }
        }
    }
    return true;
}

// Written whole under a temporary name, then renamed: a stand-in reading the
// file meanwhile sees the old or the new content, never a part.
bool writeFile(const std::string& path, const std::string& text)
{
    if (!makeDirs(path.substr(0, path.rfind('/')))) {
        return false;
    }
    std::string temp = path + ".simctl-new";
    FILE* f = fopen(temp.c_str(), "wb");
    if (f == nullptr) {
        return error("cannot write " + path + ": " + strerror(errno));
    }
    bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    ok = fclose(f) == 0 && ok;
    if (!ok || rename(temp.c_str(), path.c_str()) != 0) {
        unlink(temp.c_str());
        return error("cannot write " + path);
    }
    return true;
}

// "\n", "\t", "\\" and "\xHH" in a write's text.
std::string unescape(const std::string& s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); i++) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
            continue;
        }
        char c = s[++i];
        if (c == 'n') {
            out += '\n';
        } else if (c == 't') {
            out += '\t';
        } else if (c == 'x' && i + 2 < s.size() && isxdigit(static_cast<unsigned char>(s[i + 1])) &&
                   isxdigit(static_cast<unsigned char>(s[i + 2]))) {
            out += static_cast<char>(strtoul(s.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            out += c;
        }
    }
    return out;
}

// A controller path a scenario may touch: absolute, no "..", plain characters.
bool plainPath(const std::string& path)
{
    if (path.size() < 2 || path[0] != '/' || path.find("..") != std::string::npos) {
        return false;
    }
    return std::all_of(path.begin(), path.end(),
                       [](char c) { return isalnum(static_cast<unsigned char>(c)) || strchr("/._-+", c) != nullptr; });
}

std::string scenarioFolder()
{
    if (const char* env = getenv("GDS_SCENARIOS")) {
        return env;
    }
    // Installed: <prefix>/bin/simctl and <prefix>/share/gds/scenarios.
    char exe[4096];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n > 0) {
        exe[n] = '\0';
        std::string dir(exe);
        dir = dir.substr(0, dir.rfind('/'));
        std::string installed = dir + "/../share/gds/scenarios";
        struct stat st;
        if (stat(installed.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            return installed;
        }
    }
    return GDS_SCENARIO_SOURCE;  // the source tree's sim/scenarios
}

// Words of an action line: the command, then blank-separated words; the text
// of "write" is the rest of the line after the path.
bool parseScenario(const std::string& name, const std::string& text, Scenario& s)
{
    s.name = name;
    size_t at = 0;
    int lineNo = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end;
        std::string line = text.substr(at, end - at);
        at = end + 1;
        lineNo++;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (line.compare(0, 12, "description:") == 0) {
            size_t first = line.find_first_not_of(' ', 12);
            s.description = first == std::string::npos ? "" : line.substr(first);
            continue;
        }
        std::vector<std::string> words;
        size_t pos = 0;
        while (pos < line.size() && words.size() < (words.empty() || words[0] != "write" ? 6u : 2u)) {
            size_t start = line.find_first_not_of(' ', pos);
            if (start == std::string::npos) {
                break;
            }
            size_t stop = line.find(' ', start);
            stop = stop == std::string::npos ? line.size() : stop;
            words.push_back(line.substr(start, stop - start));
            pos = stop;
        }
        if (words.empty()) {
            continue;
        }
        if (words[0] == "write") {
            words.push_back(unescape(pos < line.size() ? line.substr(pos + 1) : ""));
        }
        const struct {
            const char* command;
            size_t words;
        } known[] = {{"write", 3}, {"remove", 2}, {"property", 4}, {"drop-first", 5}, {"bump", 3}, {"key", 4}};
        bool ok = false;
        for (const auto& k : known) {
            ok = ok || (words[0] == k.command && words.size() == k.words);
        }
        if (!ok || (words[0] != "property" && !plainPath(words[1]))) {
            return error(name + kSuffix + " line " + std::to_string(lineNo) + ": not a valid action: " + line);
        }
        s.actions.push_back(words);
    }
    return true;
}

bool validName(const std::string& name)
{
    return !name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), [](char c) {
        return isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_';
    });
}

bool loadScenario(const std::string& name, Scenario& s)
{
    std::string text;
    if (!validName(name) || !readFile(scenarioFolder() + "/" + name + kSuffix, text)) {
        return error("unknown scenario '" + name + "' (simctl list shows them)");
    }
    return parseScenario(name, text, s);
}

std::vector<std::string> scenarioNames()
{
    std::vector<std::string> names;
    DIR* dir = opendir(scenarioFolder().c_str());
    if (dir == nullptr) {
        return names;
    }
    const size_t suffix = strlen(kSuffix);
    while (dirent* e = readdir(dir)) {
        std::string file = e->d_name;
        if (file.size() > suffix && file.compare(file.size() - suffix, suffix, kSuffix) == 0 &&
            validName(file.substr(0, file.size() - suffix))) {
            names.push_back(file.substr(0, file.size() - suffix));
        }
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

std::string stateDir(const std::string& name)
{
    return PlatformRoot::path(std::string(kState) + "/" + name);
}

bool applied(const std::string& name)
{
    struct stat st;
    return stat((stateDir(name) + "/manifest").c_str(), &st) == 0;
}

// The controller path an action changes.
std::string target(const std::vector<std::string>& a)
{
    return a[0] == "property" ? "/var/aim/props/" + a[1] : a[1];
}

// Changes a JSON file: drops the first element of an array whose key has a
// value, or raises a number by one (a one-byte version: 255 wraps to 1).
bool editJson(const std::vector<std::string>& a)
{
    std::string path = PlatformRoot::path(a[1]);
    std::string text;
    if (!readFile(path, text)) {
        return error("cannot read " + path);
    }
    cJSON* root = cJSON_Parse(text.c_str());
    if (!cJSON_IsObject(root)) {
        cJSON_Delete(root);
        return error(path + " is not a JSON object");
    }
    bool done = false;
    if (a[0] == "drop-first") {
        cJSON* list = cJSON_GetObjectItemCaseSensitive(root, a[2].c_str());
        int index = 0;
        const cJSON* item;
        cJSON_ArrayForEach(item, list)
        {
            const cJSON* value = cJSON_GetObjectItemCaseSensitive(item, a[3].c_str());
            if (cJSON_IsString(value) && a[4] == value->valuestring) {
                cJSON_DeleteItemFromArray(list, index);
                done = true;
                break;
            }
            index++;
        }
    } else {
        const cJSON* number = cJSON_GetObjectItemCaseSensitive(root, a[2].c_str());
        int next = cJSON_IsNumber(number) ? (number->valueint + 1) % 256 : 1;
        cJSON_ReplaceItemInObjectCaseSensitive(root, a[2].c_str(), cJSON_CreateNumber(next == 0 ? 1 : next));
        done = cJSON_IsNumber(number);
    }
    char* out = done ? cJSON_Print(root) : nullptr;
    cJSON_Delete(root);
    if (out == nullptr) {
        return error(path + ": nothing to change for '" + a[0] + " " + a[2] + "'");
    }
    bool ok = writeFile(path, std::string(out) + "\n");
    free(out);
    return ok;
}

// Sets "KEY: VALUE" in a file of such lines (the simulated cards' files),
// adding the line when the key is not there.
bool setKey(const std::string& path, const std::string& key, const std::string& value)
{
    std::string text;
    if (!readFile(path, text)) {
        return error("cannot read " + path);
    }
    std::string line = key + ": " + value;
    size_t at = 0;
    while (at < text.size() && text.compare(at, key.size() + 1, key + ":") != 0) {
        size_t end = text.find('\n', at);
        at = end == std::string::npos ? text.size() : end + 1;
    }
    if (at < text.size()) {
        size_t end = text.find('\n', at);
        text.replace(at, (end == std::string::npos ? text.size() : end) - at, line);
    } else {
        text += (text.empty() || text.back() == '\n' ? "" : "\n") + line + "\n";
    }
    return writeFile(path, text);
}

bool perform(const std::vector<std::string>& a)
{
    if (a[0] == "write") {
        return writeFile(PlatformRoot::path(a[1]), a[2]);
    }
    if (a[0] == "remove") {
        std::string path = PlatformRoot::path(a[1]);
        return unlink(path.c_str()) == 0 || errno == ENOENT || error("cannot remove " + path);
    }
    if (a[0] == "key") {
        return setKey(PlatformRoot::path(a[1]), a[2], a[3]);
    }
    if (a[0] == "property") {
        bool plain = std::all_of(a[1].begin(), a[1].end(),
                                 [](char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-'; });
        if (!plain || (a[2] != "int" && a[2] != "bool" && a[2] != "str")) {
            return error("property " + a[1] + ": a plain name and int, bool or str are needed");
        }
        return writeFile(PlatformRoot::path(target(a)), a[2] + "\n" + a[3] + "\n");
    }
    return editJson(a);
}

// Puts the saved files back (the last saved first) and forgets the scenario.
bool restore(const std::string& name)
{
    std::string dir = stateDir(name);
    std::string manifest;
    if (!readFile(dir + "/manifest", manifest)) {
        return true;  // not applied
    }
    std::vector<std::string> lines;
    for (size_t at = 0; at < manifest.size();) {
        size_t end = manifest.find('\n', at);
        end = end == std::string::npos ? manifest.size() : end;
        lines.push_back(manifest.substr(at, end - at));
        at = end + 1;
    }
    bool ok = true;
    for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
        // "saved N PATH": the file was there, its copy is saved/N; "absent PATH".
        char kind[8] = "";
        int n = -1;
        char path[4096] = "";
        if (sscanf(it->c_str(), "saved %d %4095s", &n, path) == 2) {
            std::string copy;
            ok = (readFile(dir + "/saved/" + std::to_string(n), copy) && writeFile(PlatformRoot::path(path), copy)) &&
                 ok;
        } else if (sscanf(it->c_str(), "%7s %4095s", kind, path) == 2 && strcmp(kind, "absent") == 0) {
            std::string host = PlatformRoot::path(path);
            ok = (unlink(host.c_str()) == 0 || errno == ENOENT) && ok;
        }
    }
    if (!ok) {
        return error("could not put back every file of " + name + "; its saved copies stay in " + dir);
    }
    std::string saved = dir + "/saved";
    if (DIR* d = opendir(saved.c_str())) {
        while (dirent* e = readdir(d)) {
            if (e->d_name[0] != '.') {
                unlink((saved + "/" + e->d_name).c_str());
            }
        }
        closedir(d);
    }
    rmdir(saved.c_str());
    unlink((dir + "/order").c_str());
    unlink((dir + "/manifest").c_str());
    rmdir(dir.c_str());
    return true;
}

bool apply(const Scenario& s)
{
    if (applied(s.name)) {
        return true;
    }
    std::string dir = stateDir(s.name);
    if (!makeDirs(dir + "/saved")) {
        return false;
    }
    // Save every file the actions touch (once, before the first change).
    std::string manifest;
    std::vector<std::string> seen;
    for (const auto& a : s.actions) {
        std::string path = target(a);
        if (std::find(seen.begin(), seen.end(), path) != seen.end()) {
            continue;
        }
        std::string content;
        if (readFile(PlatformRoot::path(path), content)) {
            std::string n = std::to_string(seen.size());
            if (!writeFile(dir + "/saved/" + n, content)) {
                return false;
            }
            manifest += "saved " + n + " " + path + "\n";
        } else {
            manifest += "absent " + path + "\n";
        }
        seen.push_back(path);
    }
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    char order[48];
    snprintf(order, sizeof order, "%lld.%09ld\n", static_cast<long long>(now.tv_sec), now.tv_nsec);
    if (!writeFile(dir + "/order", order) || !writeFile(dir + "/manifest", manifest)) {
        return false;
    }
    for (const auto& a : s.actions) {
        if (!perform(a)) {
            restore(s.name);
            return error("scenario " + s.name + " not applied");
        }
    }
    return true;
}

int list(bool json)
{
    cJSON* array = cJSON_CreateArray();
    for (const std::string& name : scenarioNames()) {
        Scenario s;
        std::string text;
        readFile(scenarioFolder() + "/" + name + kSuffix, text);
        bool valid = parseScenario(name, text, s);
        bool on = applied(name);
        if (json) {
            cJSON* o = cJSON_CreateObject();
            cJSON_AddStringToObject(o, "name", name.c_str());
            cJSON_AddStringToObject(o, "description", s.description.c_str());
            cJSON_AddBoolToObject(o, "applied", on);
            cJSON_AddItemToArray(array, o);
        } else {
            printf("%-24s %-8s %s%s\n", name.c_str(), on ? "applied" : "-", s.description.c_str(),
                   valid ? "" : " (not valid)");
        }
    }
    if (json) {
        char* text = cJSON_PrintUnformatted(array);
        printf("%s\n", text != nullptr ? text : "[]");
        free(text);
    }
    cJSON_Delete(array);
    return 0;
}

int clearAll()
{
    std::vector<std::pair<std::string, std::string>> on;  // order, name
    for (const std::string& name : scenarioNames()) {
        std::string order;
        if (applied(name)) {
            readFile(stateDir(name) + "/order", order);
            on.emplace_back(order, name);
        }
    }
    std::sort(on.rbegin(), on.rend());
    bool ok = true;
    for (const auto& o : on) {
        ok = restore(o.second) && ok;
    }
    return ok ? 0 : 1;
}

int usage()
{
    fputs(
        "usage: simctl list [--json] | apply NAME | clear NAME | clear-all\n"
        "Scenarios of the simulated controller below $GDS_ROOT (docs/simulator.md).\n",
        stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string command = argc >= 2 ? argv[1] : "";
    // Only ever a simulated root: on a controller these are the real files.
    const char* root = getenv("GDS_ROOT");
    if (command != "" && (root == nullptr || PlatformRoot::root().empty())) {
        fprintf(stderr, "simctl: GDS_ROOT must name a simulated controller root (build/run-root)\n");
        return 2;
    }
    if (command == "list" && (argc == 2 || (argc == 3 && strcmp(argv[2], "--json") == 0))) {
        return list(argc == 3);
    }
    if (command == "clear-all" && argc == 2) {
        return clearAll();
    }
    if ((command == "apply" || command == "clear") && argc == 3) {
        Scenario s;
        if (!loadScenario(argv[2], s)) {
            return 1;
        }
        return (command == "apply" ? apply(s) : restore(s.name)) ? 0 : 1;
    }
    return usage();
}
