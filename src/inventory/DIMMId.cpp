#include "DIMMId.h"

#include <cstring>
#include <vector>

namespace {

// The naming rule of every model table. Several models share a rule; the
// model names stay distinct because the browser pages name them.
struct Model {
    const char* name;
    const char* rule;
};
const Model kModels[] = {
    {"DravonDIMMId", "DIMM_{A-F}{1-2}"},
    {"RuskelDIMMId", "DIMM_{A-F}{1-2}"},
    {"ZenthDIMMId", "DIMM_{A-F}{0-7}"},
    {"KestinDIMMId", "MEM{1-8} DIMM_{1-2}{B,D,A,C}"},
    {"MorlacDIMMId", "CPU{1-2}_{A-D}{0-1}_DIMM_{1-4}"},
    {"Pallix1DIMMId", "DIMM_{A-H}{1-2}"},
    {"NimbrelDIMMId", "DIMM_{A-H}{1-2}"},
    {"CastrelDIMMId", "DIMM_{A-H}{1-2}"},
    {"Pallix2DIMMId", "DIMM_{A-H}{1-3}"},
    {"Vorsha1DIMMId", "DIMM_{A-H}{1-3}"},
    {"Vorsha2DIMMId", "DIMM_{A-H}{1-3}"},
    {"Greff1DIMMId", "DIMM_{A-H}{1-3}"},
    {"Greff2DIMMId", "DIMM_{A-H}{1-3}"},
    {"TovrelDIMMId", "{A,B,C,D,E,F,G,H,J,K,L,M,N,P,R,S}{1-3}"},
    {"QuentarDIMMId", "MEM RSR {1-8} DIMM {A-D}{1-3}"},
    {"LurvenDIMMId", "CPU{1-4}_DIMM_{A-F}{1-2}"},
};

struct Selection {
    PLATFORM platform;
    const char* model;
};
const Selection kSelections[] = {
    {PLATFORM_DRAVON, "DravonDIMMId"},    {PLATFORM_DRAVON_2U, "DravonDIMMId"}, {PLATFORM_ZENTH, "ZenthDIMMId"},
    {PLATFORM_KESTIN, "KestinDIMMId"},    {PLATFORM_MORLAC, "MorlacDIMMId"},    {PLATFORM_PALLIX1, "Pallix1DIMMId"},
    {PLATFORM_PALLIX2, "Pallix2DIMMId"},  {PLATFORM_RUSKEL, "RuskelDIMMId"},    {PLATFORM_RUSKEL_RISER, "RuskelDIMMId"},
    {PLATFORM_TOVREL, "TovrelDIMMId"},    {PLATFORM_QUENTAR, "QuentarDIMMId"},  {PLATFORM_VORSHA1, "Vorsha1DIMMId"},
    {PLATFORM_VORSHA2, "Vorsha2DIMMId"},  {PLATFORM_GREFF1, "Greff1DIMMId"},    {PLATFORM_GREFF2, "Greff2DIMMId"},
    {PLATFORM_NIMBREL1, "NimbrelDIMMId"}, {PLATFORM_CASTREL, "CastrelDIMMId"},
};

}  // namespace

DIMMId::DIMMId(const char* model) : m_model(model != nullptr ? model : "")
{
    for (const Model& m : kModels) {
        if (m_model == m.name) {
            m_ids = expand(m.rule);
            break;
        }
    }
}

bool DIMMId::getIdFromLocation(const std::string& location, int& id) const
{
    auto it = m_ids.find(location);
    if (it == m_ids.end()) {
        return false;
    }
    id = it->second;
    return true;
}

const char* DIMMId::modelFor(PLATFORM platform, const char* sampleLocation)
{
    if (platform == PLATFORM_LURVEN) {
        // Lurven hosts have been built with riser memory named like
        // Quentar's ("MEM RSR 1 DIMM A1") and with CPU-attached memory
        // ("CPU1_DIMM_A1"). The table follows the names the host reports:
        // riser names get the Quentar table (the long-standing choice for
        // this platform), every other form the Lurven table.
        if (sampleLocation == nullptr || strncmp(sampleLocation, "MEM RSR ", 8) == 0) {
            return "QuentarDIMMId";
        }
        return "LurvenDIMMId";
    }
    for (const Selection& s : kSelections) {
        if (s.platform == platform) {
            return s.model;
        }
    }
    return nullptr;
}

std::map<std::string, int> DIMMId::expand(const std::string& rule)
{
    // Cut the rule into parts, each a list of alternatives (a literal is a
    // list of one).
    std::vector<std::vector<std::string>> parts;
    size_t at = 0;
    while (at < rule.size()) {
        if (rule[at] != '{') {
            size_t open = rule.find('{', at);
            parts.push_back({rule.substr(at, open == std::string::npos ? std::string::npos : open - at)});
            at = open == std::string::npos ? rule.size() : open;
            continue;
        }
        size_t close = rule.find('}', at);
        if (close == std::string::npos) {
            return {};  // a broken rule makes an empty table
        }
        std::string body = rule.substr(at + 1, close - at - 1);
        std::vector<std::string> alternatives;
        if (body.size() == 3 && body[1] == '-' && body[0] <= body[2]) {
            for (char c = body[0]; c <= body[2]; c++) {
                alternatives.push_back(std::string(1, c));
            }
        } else {
            size_t from = 0;
            for (size_t comma; (comma = body.find(',', from)) != std::string::npos; from = comma + 1) {
                alternatives.push_back(body.substr(from, comma - from));
            }
            alternatives.push_back(body.substr(from));
        }
        parts.push_back(alternatives);
        at = close + 1;
    }
    std::map<std::string, int> ids;
    std::vector<size_t> index(parts.size(), 0);
    for (int id = 1;; id++) {
        std::string name;
        for (size_t i = 0; i < parts.size(); i++) {
            name += parts[i][index[i]];
        }
        ids.emplace(name, id);
        size_t i = parts.size();
        while (i > 0 && ++index[i - 1] == parts[i - 1].size()) {
            index[--i] = 0;
        }
        if (i == 0) {
            break;
        }
    }
    return ids;
}
