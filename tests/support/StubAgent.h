// An agent whose seven operations all succeed and do nothing, for tests and
// fuzz targets that exercise the base class's helpers. It can be handed
// prepared tool output (m_backendText), which it owns until a query
// releases it. One connection thread at a time, like every agent.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>

#include "DataAgent.h"

class StubAgent : public DataAgent {
public:
    explicit StubAgent(DataHandler& h, const char* name = "Stub") : DataAgent(name, h) {}
    int initialize() override { return 1; }
    int preProcessGet(std::string&, std::string&) override { return 1; }
    int processGet() override { return 1; }
    int postProcessGet(ConnectionHandler&) override { return 1; }
    int preProcessSet(std::string&, TokenMap&) override { return 1; }
    int processSet() override { return 1; }
    int postProcessSet(ConnectionHandler&, TokenMap&) override { return 1; }

    // Replaces any prepared text by a copy of `text`.
    void prepare(const std::string& text)
    {
        free(m_backendText);
        m_backendText = strdup(text.c_str());
    }
    bool prepared() const { return m_backendText != nullptr; }
};
