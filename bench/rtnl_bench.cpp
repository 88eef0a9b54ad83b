// libraries: tarn_netlink
// A policy rule added and deleted through the daemon's calls, against the bare two requests on an
// open socket and on one opened for each. Runs in a network namespace that it makes for itself.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include "netlink/rtnl.h"
#include "netlink/rtnl_internal.h"

constexpr int TABLE = 20, PRIORITY = 500;

static void layer(benchmark::State &state)
{
    for (auto _ : state)
        if (ng_rtnl_iface_rule_add("lo", 0, 0, 0, TABLE, PRIORITY) < 0 ||
            ng_rtnl_iface_rule_del("lo", 0, 0, 0, TABLE, PRIORITY) < 0)
            state.SkipWithError("refused");
}
BENCHMARK(layer);

/// Sends one prepared request and reads its acknowledgement.
static bool bare_exchange(int fd, rtnl_rule_request *request)
{
    char answer[1024];
    iovec out = {request, request->header.nlmsg_len}, in = {answer, sizeof answer};
    msghdr message = {};
    message.msg_iov = &out;
    message.msg_iovlen = 1;
    if (sendmsg(fd, &message, 0) < 0)
        return false;
    message.msg_iov = &in;
    if (recvmsg(fd, &message, 0) < (ssize_t)(sizeof(nlmsghdr) + sizeof(nlmsgerr)))
        return false;
    return reinterpret_cast<nlmsgerr *>(answer + sizeof(nlmsghdr))->error == 0;
}

/// With `fresh`, each request has a socket of its own, as the daemon's calls have.
static void bare(benchmark::State &state, bool fresh)
{
    rtnl_rule rule = {
        RTM_NEWRULE, NLM_F_CREATE | NLM_F_EXCL | NLM_F_ACK, "lo", 0, 0, 0, TABLE, RTN_UNICAST,
        PRIORITY};
    rtnl_rule_request requests[2];
    bool built = rtnl_rule_build(&requests[0], rule) == 0;
    rule.msg_type = RTM_DELRULE;
    rule.msg_flags = NLM_F_ACK;
    built = built && rtnl_rule_build(&requests[1], rule) == 0;
    int fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    for (auto _ : state) {
        for (rtnl_rule_request &request : requests) {
            if (!built || !bare_exchange(fd, &request))
                state.SkipWithError("refused");
            if (fresh) {
                close(fd);
                fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
            }
        }
    }
    close(fd);
}
BENCHMARK_CAPTURE(bare, one_socket, false);
BENCHMARK_CAPTURE(bare, a_socket_each, true);

int main(int argc, char **argv)
{
    if (unshare(CLONE_NEWNET) < 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) < 0) {
        fputs("rtnl_bench: this machine forbids network namespaces: skipped\n", stderr);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
