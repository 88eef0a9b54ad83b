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
