#include "GUIDataHandler.h"

#include "DataAgent.h"
#include "DefaultPropertyAgent.h"
#include "JNLPDataAgent.h"
#include "ServiceAgent.h"
#include "videoCaptureAgent.h"

GUIDataHandler::GUIDataHandler(ConnectionHandler& connection) : DataHandler(connection), m_defaultAgent(nullptr)
{
    m_defaultAgent = new DefaultPropertyAgent(*this);

    // The other built-in agents are built by the first request that names
    // them: most connections use one or two of them.
    auto jnlp = [](DataHandler& h) -> DataAgent* { return new JNLPDataAgent(h); };
    for (const char* name :
         {"viewer.jnlp", "bootCapture.jnlp", "crashCapture.jnlp", "vmStart", "genComputeTokens", "kvm.jnlp"}) {
        addAgent(name, static_cast<AgentMaker>(jnlp));
    }

    auto video = [](DataHandler& h) -> DataAgent* { return new videoCaptureAgent(h); };
    for (const char* name : {"videoBootCapture", "videoCrashCapture", "crashCaptureTrigger", "bootCaptureEnabled",
                             "bootCaptureStopOnPost", "crashCaptureEnabled"}) {
        addAgent(name, static_cast<AgentMaker>(video));
    }

    auto service = [](DataHandler& h) -> DataAgent* { return new ServiceAgent(h); };
    for (const char* name :
         {"sshEnabled", "sshPort", "sshTimeout", "sshMaxSessions", "webEnabled", "webTimeout", "webHTTPPort",
          "webHTTPSPort", "xmlapiEnabled", "redfishEnabled", "apiEnabled", "hostApiEnabled", "hostApiIP", "hostApiPort",
          "maxApiCallers", "apiEncrypted", "apiHTTPPort", "apiHTTPSPort"}) {
        addAgent(name, static_cast<AgentMaker>(service));
    }
}

GUIDataHandler::~GUIDataHandler()
{
    m_log.logTrace("GUIDataHandler.Destructor:: this will destruct DefaultPropertyAgent and Other agents.\n");
    delete m_defaultAgent;
    m_defaultAgent = nullptr;
}

void GUIDataHandler::getPropertyList(std::vector<std::string>& names)
{
    for (const std::string& name : DataHandler::names().names) {
        if (name.find("viewer.jnlp") == std::string::npos) {
            names.push_back(name);
        }
    }
}
