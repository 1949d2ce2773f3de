#include "GUIDataHandler.h"

#include "DataAgent.h"
#include "DefaultPropertyAgent.h"
#include "JNLPDataAgent.h"
#include "ServiceAgent.h"
#include "videoCaptureAgent.h"

GUIDataHandler::GUIDataHandler(ConnectionHandler& connection) : DataHandler(connection), m_defaultAgent(nullptr)
{
    m_defaultAgent = new DefaultPropertyAgent(*this);

    DataAgent* jnlp = new JNLPDataAgent(*this);
    for (const char* name :
         {"viewer.jnlp", "bootCapture.jnlp", "crashCapture.jnlp", "vmStart", "genComputeTokens", "kvm.jnlp"}) {
        addAgent(name, jnlp);
    }

    DataAgent* video = new videoCaptureAgent(*this);
    for (const char* name : {"videoBootCapture", "videoCrashCapture", "crashCaptureTrigger", "bootCaptureEnabled",
                             "bootCaptureStopOnPost", "crashCaptureEnabled"}) {
        addAgent(name, video);
    }

    DataAgent* service = new ServiceAgent(*this);
    for (const char* name :
         {"sshEnabled", "sshPort", "sshTimeout", "sshMaxSessions", "webEnabled", "webTimeout", "webHTTPPort",
          "webHTTPSPort", "xmlapiEnabled", "redfishEnabled", "apiEnabled", "hostApiEnabled", "hostApiIP", "hostApiPort",
          "maxApiCallers", "apiEncrypted", "apiHTTPPort", "apiHTTPSPort"}) {
        addAgent(name, service);
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
    for (const auto& entry : m_agentMap) {
        if (entry.first.find("viewer.jnlp") == std::string::npos) {
            names.push_back(entry.first);
        }
    }
}
