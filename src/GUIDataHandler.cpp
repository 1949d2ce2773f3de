#include "GUIDataHandler.h"

#include "DataAgent.h"

GUIDataHandler::GUIDataHandler(ConnectionHandler& connection) : DataHandler(connection), m_defaultAgent(nullptr)
{
    // The built-in agents join here as they are built: the default property
    // agent, the launch-document agent, the video capture agent and the
    // service agent.
}

GUIDataHandler::~GUIDataHandler()
{
    m_log.logTrace("GUIDataHandler.Destructor:: this will destruct DefaultPropertyAgent and Other agents.\n");
    delete m_defaultAgent;
    m_defaultAgent = nullptr;
}

void GUIDataHandler::getPropertyList(std::vector<std::string>& names)
{
    for (const auto& entry : m_agentMap) {
        if (entry.first.find("viewer.jnlp") == std::string::npos) {
            names.push_back(entry.first);
        }
    }
}
