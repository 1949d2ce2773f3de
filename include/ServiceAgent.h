// ServiceAgent: settings of the controller's network services (web, API,
// SSH, Telnet, remote command line, SNMP, auto support, XML API, Redfish,
// smart-card login, local-configuration locks). Storing is the default
// agent's; this agent then reads back the new state, applies the smart-card
// rule, runs the lock functions and sends one change event per touched
// service. One per connection, owned by its GUIDataHandler; that
// connection's thread only.
#pragma once

#include "DefaultPropertyAgent.h"

class ServiceAgent : public DefaultPropertyAgent {
public:
    // Length of the SSH change event's payload: the state word and the command.
    static const int kSshCommandSize = 64;
    static const int kSshPayloadSize = 4 + kSshCommandSize;

    explicit ServiceAgent(DataHandler& handler);
    ~ServiceAgent() override;

    int initialize() override;
    int processSet() override;

private:
    // Runs a lock function with the lock's current state (1 or 0).
    void runLockFunction(const char* lockKey, const char* function);
    // Switches a service off for smart-card login; true when it was on.
    bool disableForSmartCard(const char* key, const char* message);
};
