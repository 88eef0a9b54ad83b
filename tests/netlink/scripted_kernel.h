// A kernel that says what a test wants. While one of these lives, sendmsg() and recvmsg() of this
// program and of the netlink library it links are answered from its script; sleep() and usleep()
// return at once and are counted; interfaces are looked up in its table. Sockets stay real.
#pragma once

#include <cerrno>
#include <deque>
#include <map>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "netlink/bytes.h"

/// One result of recvmsg().
struct scripted_answer {
    bytes datagram;           ///< zero ports and sequence numbers in it become the request's
    int error = 0;            ///< not 0: recvmsg() fails with this errno
    uint32_t sender_port = 0; ///< of the sender's address
    socklen_t sender_length = 12;
    bool truncated = false; ///< reported as longer than the buffer
};

class scripted_kernel {
public:
    scripted_kernel();
    ~scripted_kernel();
    scripted_kernel(const scripted_kernel &) = delete;
    scripted_kernel &operator=(const scripted_kernel &) = delete;

    /// Queues datagrams, each as it is.
    void answer(const std::vector<bytes> &datagrams);

    std::deque<scripted_answer> answers;
    std::vector<bytes> requests; ///< what was sent, families looked up excepted
    std::map<std::string, unsigned> interfaces;
    int send_error = 0;         ///< not 0: sendmsg() fails with this errno
    bool families_known = true; ///< false: a family look-up is refused with ENOENT
    int empty_error = EIO;      ///< errno of recvmsg() when the script has run out
    unsigned slept_s = 0;
    unsigned slept_us = 0;
    int receives = 0;

    /// What every family look-up finds.
    static constexpr uint16_t FAMILY = 0x21;
    static constexpr uint32_t GROUP = 16; ///< a group that each kernel has
};
