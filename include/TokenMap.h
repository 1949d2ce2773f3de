// TokenMap: property name to its argument tokens in request order, ordered by
// byte-wise name comparison. The form in which set requests reach agents; a
// plain value owned by the request being processed.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "RequestToken.h"

using TokenMap = std::map<std::string, std::vector<RequestToken>>;
