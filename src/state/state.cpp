// The shared record itself; what its members mean and who changes them is in the headers.
#include "state/owned.h"

tarn_net_state gTarn_net_state;
online_settings gOnline_settings;
ubus_context *gUbus_ctx;

const tarn_net_state &node_state()
{
    return gTarn_net_state;
}
