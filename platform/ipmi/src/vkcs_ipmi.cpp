#include "vkcs_ipmi.h"

#include "MdrSim.h"

extern "C" int vkcs_send_ipmi_cmd(unsigned char netfn, unsigned char lun, unsigned char cmd,
                                  unsigned char* completion_code, vkcs_ipmi_msg_t* msg)
{
    if (completion_code == nullptr || msg == nullptr) {
        return -1;
    }
    if (netfn != VKCS_NETFN_OEM_MDR || lun != 0) {
        // The stand-in only carries the MDR commands; anything else is an
        // exchange the stack answers with "invalid command".
        *completion_code = VKCS_CC_INVALID_COMMAND;
        msg->length = 0;
        return 0;
    }
    return MdrSim::exchange(cmd, completion_code, msg);
}
