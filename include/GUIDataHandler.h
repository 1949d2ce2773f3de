// GUIDataHandler: the built-in registry every connection has first: it
// builds the built-in agents, registers their property names and keeps the
// default agent that serves every name nobody registered. Used on its
// connection's thread; owns the default agent (the base owns the others).
#pragma once

#include <string>
#include <vector>

#include "DataHandler.h"

class GUIDataHandler : public DataHandler {
public:
    explicit GUIDataHandler(ConnectionHandler& connection);
    ~GUIDataHandler() override;

    virtual int handleGet(std::string& name, int flags) { return 0; }
    virtual int handleSet(std::string& name, std::string& value, int flags) { return 0; }

    DataAgent* getDefaultAgent() { return m_defaultAgent; }
    // Every registered property name in name order, except those that
    // contain "viewer.jnlp".
    void getPropertyList(std::vector<std::string>& names);

private:
    DataAgent* m_defaultAgent;
};
