// Feeds arbitrary bytes to the property store's parsers: property files,
// function fixtures, record lines and encoded names. None may crash or read
// past the input; whatever parses must survive a format-and-parse round trip.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "AIMStore.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // An exact-size heap copy, so the sanitizer sees any read past the end.
    const std::unique_ptr<char[]> bytes(new char[size == 0 ? 1 : size]);
    std::copy(data, data + size, bytes.get());
    const std::string text(bytes.get(), size);

    AIMStore::Value value, back;
    if (AIMStore::parseValue(bytes.get(), size, value)) {
        std::string again = AIMStore::formatValue(value);
        if (value.text.size() > static_cast<size_t>(AIMStore::kMaxValue) ||
            !AIMStore::parseValue(again.data(), again.size(), back) || back.type != value.type ||
            back.text != value.text) {
            abort();
        }
    }

    bool ok = false;
    int code = 0;
    size_t offset = 0;
    if (AIMStore::parseFixture(bytes.get(), size, ok, code, offset) && (offset > size || (!ok && code == 0))) {
        abort();
    }

    AIMStore::Record record, parsed;
    if (AIMStore::parseRecord(text, record) && (!AIMStore::parseRecord(AIMStore::formatRecord(record), parsed) ||
                                                parsed.payload != record.payload || parsed.name != record.name)) {
        abort();
    }

    std::string name, encoded;
    if (AIMStore::decodeName(text, name) && (!AIMStore::encodeName(name, encoded) || encoded != text)) {
        abort();
    }
    return 0;
}
