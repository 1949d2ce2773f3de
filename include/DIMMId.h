// DIMMId: one server model's table from DIMM location name (the SMBIOS
// device locator, such as "DIMM_A1") to the stable id the browser uses to
// place the DIMM on its board picture. The family of model tables is data:
// each model is a naming rule in DIMMId.cpp, expanded into the map here.
// Short-lived: made per detailed memory reply, owned and deleted by its
// caller; any thread (the rule table is constant).
#pragma once

#include <map>
#include <string>

#include "DataAgent.h"

class DIMMId {
public:
    // The table of the model named `model` ("DravonDIMMId", "KestinDIMMId",
    // ...); empty for an unknown model.
    explicit DIMMId(const char* model);
    virtual ~DIMMId() = default;

    // True (and `id` set) when `location` is in the table; exact match,
    // case and blanks included. `id` is left alone otherwise.
    bool getIdFromLocation(const std::string& location, int& id) const;
    size_t size() const { return m_ids.size(); }
    const std::string& model() const { return m_model; }

    // The model table a platform uses, or null when it has none. Names in
    // the form of `sampleLocation` (a DIMM name the host reports) settle the
    // one platform whose hosts name DIMMs in two ways (see DIMMId.cpp).
    static const char* modelFor(PLATFORM platform, const char* sampleLocation = nullptr);

    // Expands a naming rule: literal text with alternatives in braces,
    // "{A-F}" a range of single characters, "{B,D,A,C}" a list; ids run
    // from 1 in expansion order, the rightmost braces varying fastest.
    static std::map<std::string, int> expand(const std::string& rule);

private:
    std::string m_model;
    std::map<std::string, int> m_ids;
};
