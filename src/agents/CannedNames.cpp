#include "CannedNames.h"

#include "FakeDataAgent.h"

namespace {
const char kDefaultItem[] = "default";
}

std::vector<std::string> CannedNames::parseList(const std::string& text, std::vector<std::string>& unknown)
{
    std::vector<std::string> items;
    std::string word;
    for (size_t i = 0; i <= text.size(); ++i) {
        char c = i < text.size() ? text[i] : ',';
        if (c != ',' && c != ' ' && c != '\t' && c != '\r' && c != '\n') {
            word += c;
            continue;
        }
        if (word.empty()) {
            continue;
        }
        std::string name = word[0] == '-' ? word.substr(1) : word;
        if (word == kDefaultItem || FakeDataAgent::isKnown(name)) {
            items.push_back(word);
        } else {
            unknown.push_back(word);
        }
        word.clear();
    }
    return items;
}

std::vector<std::string> CannedNames::choose(bool listed, const std::vector<std::string>& items,
                                             const std::map<std::string, std::string>& servedBy,
                                             const std::set<std::string>& mapped, std::vector<std::string>& refused)
{
    std::set<std::string> chosen;
    auto addDefault = [&]() {
        for (const std::string& name : FakeDataAgent::knownNames()) {
            if (servedBy.count(name) == 0 && mapped.count(name) == 0) {
                chosen.insert(name);
            }
        }
    };
    if (!listed) {
        addDefault();
    }
    for (const std::string& item : items) {
        if (item == kDefaultItem) {
            addDefault();
        } else if (!item.empty() && item[0] == '-') {
            chosen.erase(item.substr(1));
        } else if (servedBy.count(item) != 0) {
            refused.push_back(item);
        } else if (FakeDataAgent::isKnown(item)) {
            chosen.insert(item);
        }
    }
    std::vector<std::string> names;
    for (const std::string& name : FakeDataAgent::knownNames()) {
        if (chosen.count(name) != 0) {
            names.push_back(name);
        }
    }
    return names;
}
