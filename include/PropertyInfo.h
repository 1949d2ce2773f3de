// PropertyInfo: one line of the property map: a user-interface property, the
// property-service property behind it, its type, the privilege bits that may
// change it and, for integers, its bounds; plus the value of the current
// request. Owned by the DefaultPropertyAgent table; one connection thread.
#pragma once

#include <string>

class PropertyInfo {
public:
    enum Type { STRING = 1, INT = 2, BOOL = 3, CRYPT = 4 };

    PropertyInfo(const std::string& name, const std::string& aimName, int type, int privilege,
                 const std::string& maxValue, const std::string& minValue);

    // The type named by the beginning of a map file's type field ("string",
    // "int", "bool", "crypt"); 0 for anything else.
    static int typeFromText(const std::string& text);

    std::string name;
    std::string aimName;
    int type;
    int privilege;
    std::string maxValue;
    std::string minValue;
    std::string value;
    bool stored;
};
