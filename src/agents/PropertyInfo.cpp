#include "PropertyInfo.h"

PropertyInfo::PropertyInfo(const std::string& name_, const std::string& aimName_, int type_, int privilege_,
                           const std::string& maxValue_, const std::string& minValue_)
    : name(name_),
      aimName(aimName_),
      type(type_),
      privilege(privilege_),
      maxValue(maxValue_),
      minValue(minValue_),
      stored(false)
{
}

int PropertyInfo::typeFromText(const std::string& text)
{
    if (text.compare(0, 6, "string") == 0) {
        return STRING;
    }
    if (text.compare(0, 3, "int") == 0) {
        return INT;
    }
    if (text.compare(0, 4, "bool") == 0) {
        return BOOL;
    }
    if (text.compare(0, 5, "crypt") == 0) {
        return CRYPT;
    }
    return 0;
}
