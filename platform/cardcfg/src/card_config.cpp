// The card configuration stand-in: reads and edits the simulated card model
// ("/var/cards/<slot>/card", lines of "key: value") below the platform root.
#include "card_config.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "PlatformRoot.h"

namespace {

// Serialises this process's edits of card files; other processes (the
// simulated tools) replace files atomically, so readers never see half a file.
std::mutex g_writeMutex;

int fault(const char* call)
{
    std::string text;
    if (!PlatformRoot::faultText("cardcfg", call, text)) {
        return 0;
    }
    int code = -1;
    if (sscanf(text.c_str(), "%d", &code) != 1 || code == 0) {
        code = -1;
    }
    return code;
}

void record(const char* call, int slot, const char* detail)
{
    std::string dir = PlatformRoot::path("/var/cardcfg");
    mkdir(dir.c_str(), 0755);
    FILE* f = fopen((dir + "/calls").c_str(), "a");
    if (f != nullptr) {
        fprintf(f, "%s %d%s%s\n", call, slot, detail[0] != '\0' ? " " : "", detail);
        fclose(f);
    }
}

std::string cardFile(int slot)
{
    return PlatformRoot::path("/var/cards/" + std::to_string(slot) + "/card");
}

// The lines of a card file, line ends removed; false when it cannot be read.
bool readLines(const std::string& file, std::vector<std::string>& lines)
{
    FILE* f = fopen(file.c_str(), "r");
    if (f == nullptr) {
        return false;
    }
    std::string line;
    for (int c; (c = getc(f)) != EOF;) {
        if (c == '\n') {
            lines.push_back(line);
            line.clear();
        } else {
            line += static_cast<char>(c);
        }
    }
    if (!line.empty()) {
        lines.push_back(line);
    }
    fclose(f);
    return true;
}

// The value of `key` ("key: value"), or `fallback`.
std::string valueOf(const std::vector<std::string>& lines, const char* key, const char* fallback)
{
    size_t n = strlen(key);
    for (const std::string& line : lines) {
        if (line.compare(0, n, key) == 0 && line.size() > n && line[n] == ':') {
            return line.size() > n + 2 ? line.substr(n + 2) : "";
        }
    }
    return fallback;
}

bool yes(const std::string& value)
{
    return value == "yes" || value == "true" || value == "1" || value == "enabled";
}

void copyText(char* target, size_t size, const std::string& text)
{
    snprintf(target, size, "%s", text.c_str());
}

bool loadCard(int slot, card& c)
{
    std::vector<std::string> lines;
    if (!readLines(cardFile(slot), lines)) {
        return false;
    }
    c.slot = slot;
    c.type = atoi(valueOf(lines, "type-code", "0").c_str());
    c.active = yes(valueOf(lines, "active", "yes")) ? 1 : 0;
    c.actions_enabled = yes(valueOf(lines, "actions-blocked", "no")) ? 0 : 1;
    std::string limit = valueOf(lines, "temperature-limit", "");
    c.overtemp = !limit.empty() && atoi(valueOf(lines, "temperature", "0").c_str()) >= atoi(limit.c_str()) ? 1 : 0;
    copyText(c.serial, sizeof c.serial, valueOf(lines, "serial-number", ""));
    copyText(c.description, sizeof c.description, valueOf(lines, "description", ""));
    return true;
}

// Sets `key` in the card file of `slot` (adding it when missing); the file
// is replaced atomically.
int setValue(int slot, const char* key, const std::string& value)
{
    std::lock_guard<std::mutex> lock(g_writeMutex);
    std::string file = cardFile(slot);
    std::vector<std::string> lines;
    if (!readLines(file, lines)) {
        return -1;
    }
    std::string entry = std::string(key) + ": " + value;
    size_t n = strlen(key);
    bool found = false;
    for (std::string& line : lines) {
        if (line.compare(0, n, key) == 0 && line.size() > n && line[n] == ':') {
            line = entry;
            found = true;
            break;
        }
    }
    if (!found) {
        lines.push_back(entry);
    }
    std::string temp = file + ".cardcfg." + std::to_string(getpid());
    FILE* f = fopen(temp.c_str(), "w");
    if (f == nullptr) {
        return -1;
    }
    for (const std::string& line : lines) {
        fprintf(f, "%s\n", line.c_str());
    }
    if (fclose(f) != 0 || rename(temp.c_str(), file.c_str()) != 0) {
        unlink(temp.c_str());
        return -1;
    }
    return 0;
}

// The card of `cfg` with serial number `serial`, or null.
card* bySerial(config* cfg, const char* serial)
{
    if (cfg == nullptr || serial == nullptr || serial[0] == '\0') {
        return nullptr;
    }
    for (int i = 0; i < cfg->count; ++i) {
        if (strncmp(cfg->cards[i].serial, serial, CARD_SERIAL_SIZE) == 0) {
            return &cfg->cards[i];
        }
    }
    return nullptr;
}

}  // namespace

extern "C" {

int card_config_lib_init(void)
{
    return fault("card_config_lib_init");
}

int get_card_config(config** cfg)
{
    if (cfg == nullptr) {
        return -1;
    }
    if (int code = fault("get_card_config")) {
        return code;
    }
    config* result = static_cast<config*>(calloc(1, sizeof(config)));
    if (result == nullptr) {
        return -1;
    }
    DIR* dir = opendir(PlatformRoot::path("/var/cards").c_str());
    std::vector<int> slots;
    if (dir != nullptr) {
        while (struct dirent* entry = readdir(dir)) {
            char* end = nullptr;
            long slot = strtol(entry->d_name, &end, 10);
            if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9' && *end == '\0' && slot <= 255) {
                slots.push_back(static_cast<int>(slot));
            }
        }
        closedir(dir);
    }
    std::sort(slots.begin(), slots.end());
    for (int slot : slots) {
        if (result->count < CARD_CONFIG_MAX_CARDS && loadCard(slot, result->cards[result->count])) {
            ++result->count;
        }
    }
    *cfg = result;
    return 0;
}

card* get_card_by_pci_slot_id(config* cfg, unsigned char slot)
{
    if (cfg == nullptr) {
        return nullptr;
    }
    for (int i = 0; i < cfg->count; ++i) {
        if (cfg->cards[i].slot == slot) {
            return &cfg->cards[i];
        }
    }
    return nullptr;
}

int get_card_type(card* c, int* type)
{
    if (c == nullptr || type == nullptr) {
        return -1;
    }
    *type = c->type;
    return 0;
}

int is_card_active(card* c)
{
    return c != nullptr && c->active;
}

int are_card_actions_enabled(card* c)
{
    return c != nullptr && c->actions_enabled;
}

int check_overtemp_condition(card* c)
{
    return c != nullptr && c->overtemp;
}

int get_card_serialnum(card* c, char* serial)
{
    if (c == nullptr || serial == nullptr) {
        return -1;
    }
    if (int code = fault("get_card_serialnum")) {
        return code;
    }
    snprintf(serial, CARD_SERIAL_SIZE, "%s", c->serial);
    return 0;
}

int set_card_as_active(config* cfg, char* serial, int flags)
{
    card* c = bySerial(cfg, serial);
    if (c == nullptr || flags != 0) {
        return -1;
    }
    record("set_card_as_active", c->slot, "");
    int code = fault("set_card_as_active");
    if (code == 0 && (code = setValue(c->slot, "active", "yes")) == 0) {
        c->active = 1;
    }
    return code;
}

int set_card_as_inactive(config* cfg, char* serial, int flags)
{
    card* c = bySerial(cfg, serial);
    if (c == nullptr || flags != 0) {
        return -1;
    }
    record("set_card_as_inactive", c->slot, "");
    int code = fault("set_card_as_inactive");
    if (code == 0 && (code = setValue(c->slot, "active", "no")) == 0) {
        c->active = 0;
    }
    return code;
}

int bypass_reset_sequence(config* cfg, char* serial)
{
    card* c = bySerial(cfg, serial);
    if (c == nullptr) {
        return -1;
    }
    record("bypass_reset_sequence", c->slot, "");
    return fault("bypass_reset_sequence");
}

int set_card_description(card* c, const char* description)
{
    if (c == nullptr || description == nullptr) {
        return -1;
    }
    // A line end would add a line to the card file.
    std::string text;
    for (const char* p = description; *p != '\0' && text.size() < CARD_DESCRIPTION_SIZE - 1; ++p) {
        text += (*p == '\n' || *p == '\r') ? ' ' : *p;
    }
    record("set_card_description", c->slot, text.c_str());
    int code = fault("set_card_description");
    if (code == 0 && (code = setValue(c->slot, "description", text)) == 0) {
        copyText(c->description, sizeof c->description, text);
    }
    return code;
}

void free_config(config* cfg)
{
    free(cfg);
}

}  // extern "C"
