// Feeds arbitrary bytes to the property store's parsers: property files,
// function fixtures, record lines and encoded names. None may crash or read
// past the input; whatever parses must survive a format-and-parse round trip.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "AIMStore.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // An exact-size heap copy, so the sanitizer sees any read past the end.
    char* bytes = static_cast<char*>(malloc(size == 0 ? 1 : size));
    std::string text(reinterpret_cast<const char*>(data), size);
    if (size > 0) {
        memcpy(bytes, data, size);
    }

    AIMStore::Value value;
    if (AIMStore::parseValue(bytes, size, value)) {
        if (value.text.size() > static_cast<size_t>(AIMStore::kMaxValue)) {
            abort();
        }
        std::string again = AIMStore::formatValue(value);
        AIMStore::Value back;
        if (!AIMStore::parseValue(again.data(), again.size(), back) || back.type != value.type ||
            back.text != value.text) {
            abort();
        }
    }

    bool ok = false;
    int code = 0;
    size_t offset = 0;
    if (AIMStore::parseFixture(bytes, size, ok, code, offset) && (offset > size || (!ok && code == 0))) {
        abort();
    }

    AIMStore::Record record;
    if (AIMStore::parseRecord(text, record)) {
        AIMStore::Record back;
        if (!AIMStore::parseRecord(AIMStore::formatRecord(record), back) || back.payload != record.payload ||
            back.name != record.name) {
            abort();
        }
    }

    std::string name;
    std::string encoded;
    if (AIMStore::decodeName(text, name) && (!AIMStore::encodeName(name, encoded) || encoded != text)) {
        abort();
    }
    free(bytes);
    return 0;
}
