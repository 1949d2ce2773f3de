// FakeDataAgent: answers get requests for a fixed set of browser-interface
// names with fixed XML fragments (no hardware, no property service), so every
// page of the interface has data on a development machine. One per
// connection, built and owned by the canned handler library's data handler;
// that connection's thread only. The fragment table is process-wide,
// read-only data.
#pragma once

#include <string>
#include <vector>

#include "DataAgent.h"

class FakeDataAgent : public DataAgent {
public:
    explicit FakeDataAgent(DataHandler& handler);
    ~FakeDataAgent() override;

    int initialize() override;
    int preProcessGet(std::string& name, std::string& extra) override;
    int processGet() override;
    int postProcessGet(ConnectionHandler& connection) override;
    // Sets succeed and change nothing.
    int preProcessSet(std::string& name, TokenMap& arguments) override;
    int processSet() override;
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override;

    // Every name this agent knows (83), in the order the interface's pages are
    // tested.
    static const std::vector<std::string>& knownNames();
    static bool isKnown(const std::string& name);

private:
    // The six names answered together in one network block, in block order.
    static const int kNetworkNames = 6;

    std::vector<std::string> m_requested;
    // One flag per network name, by block position; the seventh exists but
    // nothing raises it.
    bool m_network[kNetworkNames + 1];
};
