// Handles that release what libnl gave, and how a dump ends. Only what libnl-3 and libnl-tiny have
// in common is used in this folder.
#pragma once

#include <memory>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>

struct nl_release {
    void operator()(nl_sock *socket) const { nl_socket_free(socket); }
    void operator()(nl_cb *callbacks) const { nl_cb_put(callbacks); }
    void operator()(nl_msg *message) const { nlmsg_free(message); }
};
using nl_sock_handle = std::unique_ptr<nl_sock, nl_release>;
using nl_cb_handle = std::unique_ptr<nl_cb, nl_release>;
using nl_msg_handle = std::unique_ptr<nl_msg, nl_release>;

/// The error code that ends a dump (0 or a negative errno): the kernel reports failures of a dump
/// that had begun behind the header of its last message, not as an error message.
int nl_dump_end_error(nl_msg *done);
/// The text of an error as the kernel sends it, negated.
const char *nl_kernel_error_text(int error);
