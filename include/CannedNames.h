// CannedNames: decides which of FakeDataAgent's names the canned handler
// library registers, from what the other agents serve and the names list of
// its configuration section. Stateless functions; any thread.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

class CannedNames {
public:
    // Splits a names list at commas and blanks. Keeps "default", canned names
    // and "-name" of canned names, in order; every other item goes to
    // `unknown`.
    static std::vector<std::string> parseList(const std::string& text, std::vector<std::string>& unknown);

    // The names to register, in the canned order. Without a list (`listed`
    // false) that is the default set: the canned names that no real agent
    // (`servedBy`: name -> agent) and no property-map entry (`mapped`) serves.
    // With a list its items apply in order: "default" adds the default set, a
    // name adds it (a property-map name too), "-name" removes it. Listed names
    // that a real agent serves are never taken; they go to `refused`.
    static std::vector<std::string> choose(bool listed, const std::vector<std::string>& items,
                                           const std::map<std::string, std::string>& servedBy,
                                           const std::set<std::string>& mapped, std::vector<std::string>& refused);
};
