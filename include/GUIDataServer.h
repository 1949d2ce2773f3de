// GUIDataServer: the root object of the data server. Reads the command line,
// environment and configuration file, writes the default property values,
// then hands the main thread to the connection manager. One per process,
// never destroyed; owns the shared AIMClient, the handler table and the
// connection manager. Fields are written on the main thread before start()
// and only read afterwards (the AIMClient does its own locking).
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "AComponentLog.h"
#include "AIMClient.h"
#include "ALog.h"
#include "HandlerInfo.h"

class ConnectionManager;

class GUIDataServer {
public:
    GUIDataServer();
    virtual ~GUIDataServer();

    // Start-up; throws a C string when the property service cannot be used.
    void initialize(int argc, char** argv);
    void showHelp();
    // Never returns; ends the process with status 1 when the sockets fail.
    void start();

    AIMClient& getAIMClient() { return m_aimClient; }
    int getPort() const { return port; }
    // Whether initialize() stopped after printing the help text.
    bool helpShown() const { return m_helpShown; }

    void setConfigContext(std::string& section);
    void setConfigProperty(std::string& key, std::string& value);
    const std::map<std::string, HandlerInfo*>& getHandlerTable() const { return handlerTable; }

    void setDefaultProperties();
    void loadPropertyFile(FILE* file, std::vector<std::string>& names, std::vector<std::string>& aimNames,
                          std::vector<std::string>& types, std::vector<std::string>& values);

    AComponentLog& getLog() { return m_log; }

private:
    AComponentLog m_log;
    int port;
    ConnectionManager* m_connectionManager;
    AIMClient m_aimClient;
    std::string configContext;
    std::map<std::string, HandlerInfo*> handlerTable;
    ALog* m_baseLog;
    FILE* m_logFile;
    bool m_helpShown;
};
