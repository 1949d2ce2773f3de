#include "aim_config.h"

#include <cstring>
#include <string>

#include "AIMStore.h"

namespace {
// Copies `text` into a buffer of `size` bytes, cut and always terminated.
void copyBounded(const std::string& text, char* buffer, size_t size)
{
    size_t n = text.size() < size - 1 ? text.size() : size - 1;
    memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
}
}  // namespace

extern "C" int aim_config_get_int(const char* key, int* value)
{
    int v = 0;
    if (value == nullptr || AIMStore::getInt(key, v) != AIMStore::kOk) {
        return 0;
    }
    *value = v;
    return 1;
}

extern "C" int aim_config_get_bool(const char* key, bool* value)
{
    bool v = false;
    if (value == nullptr || AIMStore::getBool(key, v) != AIMStore::kOk) {
        return 0;
    }
    *value = v;
    return 1;
}

extern "C" int aim_config_get_str(const char* key, char* buffer)
{
    return aim_config_get_str_n(key, buffer, AIMStore::kMaxValue + 1);
}

extern "C" int aim_config_get_str_n(const char* key, char* buffer, int size)
{
    std::string text;
    if (buffer == nullptr || size <= 0 || AIMStore::getText(key, text) != AIMStore::kOk) {
        return 0;
    }
    copyBounded(text, buffer, static_cast<size_t>(size));
    return 1;
}

extern "C" int aim_config_set_int(const char* key, int value, int persist)
{
    return AIMStore::setInt(key, value) == AIMStore::kOk ? 1 : 0;
}

extern "C" int aim_config_set_bool(const char* key, bool value, int persist)
{
    return AIMStore::setBool(key, value) == AIMStore::kOk ? 1 : 0;
}

extern "C" int aim_config_set_str(const char* key, const char* value, int persist)
{
    return AIMStore::setText(key, value) == AIMStore::kOk ? 1 : 0;
}

extern "C" int aim_function_execute_with_timeout_setting(const char* function, int* length, const void* input,
                                                         int outputCapacity, void* output, int timeout)
{
    int inLength = length != nullptr ? *length : 0;
    int produced = 0;
    int result = AIMStore::callFunction(function, input, inLength, output, outputCapacity, &produced, &timeout);
    if (length != nullptr) {
        *length = produced;
    }
    return result;
}

extern "C" int aim_event_type_occurred(int kind, const char* event, int length, const char* data)
{
    return AIMStore::raiseEvent(&kind, event, data, length) == AIMStore::kOk ? 1 : 0;
}
