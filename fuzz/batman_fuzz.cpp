// libraries: tarn_netlink
// Messages of a batman-adv dump, each handed to both callbacks as the netlink library would.
#include <cstdlib>
#include <vector>

#include "netlink/batman_internal.h"
#include "netlink/nl_handle.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < sizeof(nlmsghdr) || size > 4096)
        return 0;
    std::vector<uint8_t> bytes(data, data + size);
    auto *header = reinterpret_cast<nlmsghdr *>(bytes.data());
    header->nlmsg_len = (uint32_t)size;
    nl_msg_handle msg(nlmsg_convert(header));
    uint32_t counter = 0;
    bool ended = false;
    (void)bat_get_neighbors_cb(msg.get(), &counter);
    (void)bat_neighbors_finish(msg.get(), &ended);
    if (counter > 1 || !ended)
        abort();
    return 0;
}
