#include "HandlerInfo.h"
