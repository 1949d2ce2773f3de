// The canned library's names list (from the configuration file): any text is
// split without crashing, every item is either kept or reported, and the
// chosen names are canned names, each once, in the canned order.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CannedNames.h"
#include "FakeDataAgent.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> unknown;
    std::vector<std::string> items = CannedNames::parseList(text, unknown);
    for (const std::string& item : items) {
        if (item.empty()) {
            abort();
        }
    }
    const std::map<std::string, std::string> served = {{"sshPort", "Service"}};
    const std::set<std::string> mapped = {"hostname"};
    std::vector<std::string> refused;
    std::vector<std::string> names = CannedNames::choose(true, items, served, mapped, refused);
    const std::vector<std::string>& known = FakeDataAgent::knownNames();
    size_t at = 0;
    for (const std::string& name : names) {
        while (at < known.size() && known[at] != name) {
            ++at;
        }
        if (at == known.size() || name == "sshPort") {
            abort();  // not canned, out of order, twice, or a real agent's name
        }
        ++at;
    }
    return 0;
}
