// The shared record itself; what its members mean and who changes them is in the headers.
#include "core/state.h"

tarn_net_state gTarn_net_state;
ubus_context *gUbus_ctx;
