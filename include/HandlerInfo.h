// HandlerInfo: one handler library declared in the configuration file: its
// name, library path and entry function. Filled on the main thread during
// start-up, read-only afterwards; owned by GUIDataServer's handler table.
#pragma once

#include <string>

class HandlerInfo {
public:
    explicit HandlerInfo(const std::string& handlerName) : name(handlerName) {}

    std::string name;
    std::string libFile;
    std::string entryPoint;
};
