// What every dump over libnl needs to know about its end.
#include "netlink/nl_handle.h"

#include <cstring>

int nl_dump_end_error(nl_msg *done)
{
    nlmsghdr *header = nlmsg_hdr(done);
    int error = 0;
    if (header->nlmsg_len >= NLMSG_HDRLEN + sizeof error)
        memcpy(&error, nlmsg_data(header), sizeof error);
    return error;
}

const char *nl_kernel_error_text(int error)
{
    // In unsigned arithmetic: the number comes from outside, and may be INT_MIN.
    return strerror(static_cast<int>(0u - static_cast<unsigned>(error)));
}
