// AUtil: small process helpers of the framework. Stateless, any thread
// (getenv itself is not safe against a concurrent setenv).
#pragma once

class AUtil {
public:
    // The environment variable's value, or `defaultValue` (may be null) when unset.
    static const char* getEnv(const char* name, const char* defaultValue);
};
