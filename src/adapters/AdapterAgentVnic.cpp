// vNIC, iSCSI boot, usNIC and boot-table actions of the adapter agent.
#include "AdapterAgent.h"

void AdapterAgent::vnicChange()
{
    notYetAvailable();
}

void AdapterAgent::vnicRemoval()
{
    notYetAvailable();
}
