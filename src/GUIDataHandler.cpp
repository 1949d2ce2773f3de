#include "GUIDataHandler.h"

#include "DataAgent.h"
#include "DefaultPropertyAgent.h"

GUIDataHandler::GUIDataHandler(ConnectionHandler& connection) : DataHandler(connection), m_defaultAgent(nullptr)
{
    m_defaultAgent = new DefaultPropertyAgent(*this);
    // The launch-document, video capture and service agents register their
    // names here as they are built.
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
