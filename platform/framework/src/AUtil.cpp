#include "AUtil.h"

#include <cstdlib>

const char* AUtil::getEnv(const char* name, const char* defaultValue)
{
    if (name == nullptr) {
        return defaultValue;
    }
    const char* v = getenv(name);
    return v != nullptr ? v : defaultValue;
}
