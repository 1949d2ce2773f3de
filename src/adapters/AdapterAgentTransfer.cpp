// Transfers of the adapter agent: configuration import and export, firmware
// update, activation and cancellation.
#include "AdapterAgent.h"

void AdapterAgent::prepareTransfer() {}

void AdapterAgent::configTransfer()
{
    notYetAvailable();
}

void AdapterAgent::firmwareAction()
{
    notYetAvailable();
}
