// Fuzzes the reading of the card utility's listing: any bytes give cards
// whose four values are non-empty and within the line buffer, records are
// reported at most once per "---", and the parse ends.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "AdapterAgent.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0 || size > 65536) {
        return 0;
    }
    std::string text(reinterpret_cast<const char*>(data), size);
    size_t starts = 0;
    for (size_t i = 0; (i = text.find("---", i)) != std::string::npos; i += 3) {
        ++starts;
    }
    for (bool details : {false, true}) {
        FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
        size_t cards = 0;
        AdapterAgent::parseCardListing(f, details, [&](const AdapterAgent::CardRecord& card) {
            if (!card.complete() || (details && !card.completeDetails()) || card.slot.size() > 255 ||
                card.mac.size() > 255 || card.interface.size() > 255 || card.type.size() > 255) {
                abort();
            }
            ++cards;
        });
        fclose(f);
        if (cards > starts) {
            abort();
        }
    }
    return 0;
}
