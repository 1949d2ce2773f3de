// AdapterAgent, set side: the rights check and the checks of every
// configuration request, before anything runs.
#include "AdapterAgent.h"
#include "ConnectionHandler.h"
#include "DataHandler.h"
#include "SecurityException.h"
#include "log_tlog.h"

namespace {

const char* const kSetNames[] = {"adapterIndex",
                                 "enicIndex",
                                 "fnicIndex",
                                 "fnicBTIndex",
                                 "adapterStandby",
                                 "uplinkSpeed",
                                 "linkTraining",
                                 "adapterConfig",
                                 "deleteVnic",
                                 "iscsiBootDelete",
                                 "createFnicChild",
                                 "deleteFnicChild",
                                 "clearPersistentBindings",
                                 "adapterReset",
                                 "adapterFactoryReset",
                                 "adapterUpdate",
                                 "adapterActivate",
                                 "adapterCancelUpdate",
                                 nullptr};

}  // namespace

const char* const* AdapterAgent::setNames()
{
    return kSetNames;
}

void AdapterAgent::resetSetFields() {}

int AdapterAgent::preProcessSet(std::string& name, TokenMap& arguments)
{
    log_tlog(1, "AdapterAgentSet.cpp %d: AdapterAgent::preProcessSet:(%s)\n", __LINE__, name.c_str());
    if ((m_dataHandler->getConnectionHandler()->getPrivileges() & 0x02) == 0) {
        throw SecurityException("Insufficient privileges for method %s ", name.c_str());
    }
    return m_status;
}

int AdapterAgent::postProcessSet(ConnectionHandler& connection, TokenMap& arguments)
{
    return m_status;
}
