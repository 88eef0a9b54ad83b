// One nl80211 dump over a socket of its own, and the queries made of it.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <linux/nl80211.h>
#include <utility>

#include "netlink/nl80211_internal.h"
#include "netlink/nl_handle.h"
#include "platform/zu/log.h"

/// How often a dump is repeated because the state changed while it was read.
constexpr int DUMP_ATTEMPTS = 3;

struct dump_progress {
    const nl80211_dump_request *request;
    bool done = false;
    bool interrupted = false;
    int error = 0; ///< negative errno of the kernel
};

int nl80211_dump_build(nl_msg *msg, int family_id, const nl80211_dump_request &request)
{
    if (!genlmsg_put(msg, NL_AUTO_PID, NL_AUTO_SEQ, family_id, 0, NLM_F_DUMP, request.command, 0))
        return -1;
    if (request.ifindex && nla_put_u32(msg, NL80211_ATTR_IFINDEX, request.ifindex) < 0)
        return -1;
    if (request.split_wiphy && nla_put_flag(msg, NL80211_ATTR_SPLIT_WIPHY_DUMP) < 0)
        return -1;
    return 0;
}

static void interruption_note(nlmsghdr *header, dump_progress *progress)
{
    if (header->nlmsg_flags & NLM_F_DUMP_INTR)
        progress->interrupted = true;
}

static int valid_cb(nl_msg *msg, void *arg)
{
    auto *progress = static_cast<dump_progress *>(arg);
    interruption_note(nlmsg_hdr(msg), progress);
    if (!progress->request->reader(nlmsg_hdr(msg), progress->request->arg))
        log_debug("nl80211: message without use in the answer to command %d",
                  progress->request->command);
    return NL_OK;
}

static int finish_cb(nl_msg *msg, void *arg)
{
    auto *progress = static_cast<dump_progress *>(arg);
    interruption_note(nlmsg_hdr(msg), progress);
    progress->error = nl_dump_end_error(msg);
    progress->done = true;
    return NL_STOP;
}

static int refused_cb(sockaddr_nl *, nlmsgerr *refusal, void *arg)
{
    auto *progress = static_cast<dump_progress *>(arg);
    progress->error = refusal->error;
    progress->done = true;
    return NL_STOP;
}

/// Connects and finds the family; its id, or a negative netlink library error.
static int family_connect(nl_sock *socket)
{
    int result = genl_connect(socket);
    return result < 0 ? result : genl_ctrl_resolve(socket, NL80211_GENL_NAME);
}

/// Sends and reads to the end of the dump; a negative netlink library error when that fails.
static int exchange(nl_sock *socket, nl_msg *msg, dump_progress *progress)
{
    nl_cb_handle callbacks(nl_cb_alloc(NL_CB_DEFAULT));
    if (!callbacks)
        return -NLE_NOMEM;
    nl_cb_set(callbacks.get(), NL_CB_VALID, NL_CB_CUSTOM, valid_cb, progress);
    nl_cb_set(callbacks.get(), NL_CB_FINISH, NL_CB_CUSTOM, finish_cb, progress);
    nl_cb_err(callbacks.get(), NL_CB_CUSTOM, refused_cb, progress);
    int result = nl_send_auto_complete(socket, msg);
    while (result >= 0 && !progress->done)
        result = nl_recvmsgs(socket, callbacks.get());
    // Once the end was read, what the library made of it (an interruption, the refusal) is known.
    return progress->done ? 0 : result;
}

static int dump_once(dump_progress *progress)
{
    nl_sock_handle socket(nl_socket_alloc());
    nl_msg_handle msg(nlmsg_alloc());
    if (!socket || !msg)
        return -NLE_NOMEM;
    int family_id = family_connect(socket.get());
    if (family_id < 0)
        return family_id;
    if (nl80211_dump_build(msg.get(), family_id, *progress->request) < 0)
        return -NLE_NOMEM;
    return exchange(socket.get(), msg.get(), progress);
}

/// True when a command fails in another way than it did the last time: a failure that goes on is
/// logged once, not at each dump. `error`: the library's is negative, the kernel's positive, 0 is
/// none.
static bool is_news(int command, int error)
{
    static int last_errors[UINT8_MAX + 1]; // by command, which is a byte
    return std::exchange(last_errors[command & UINT8_MAX], error) != error;
}

/// A kernel without nl80211 stays without it: that is said once for all commands.
static void log_failure(int command, int error)
{
    static bool is_absence_said;
    if (error == -NLE_OBJ_NOTFOUND && std::exchange(is_absence_said, true))
        return;
    if (is_news(command, error))
        log_error("nl80211: command %d failed: %s", command, nl_geterror(error));
}

int nl80211_dump(const nl80211_dump_request &request)
{
    dump_progress progress = {.request = &request};
    int result = dump_once(&progress);
    if (result < 0) {
        log_failure(request.command, result);
        return result == -NLE_OBJ_NOTFOUND ? -ENOENT : -EIO;
    }
    int error = abs(progress.error);
    if (is_news(request.command, error) && error != 0)
        log_notice("nl80211: command %d on interface %d answered: %s", request.command,
                   static_cast<int>(request.ifindex), strerror(error));
    if (error != 0)
        return -error;
    return progress.interrupted ? -EINTR : 0;
}

/// Makes a list of what the dump tells, afresh for as long as the state changes under it.
template <typename RECORD>
static int list_dump(nl80211_dump_request request, std::vector<RECORD> *out)
{
    std::vector<RECORD> list;
    request.arg = &list;
    int result = -EINTR;
    for (int attempt = 0; attempt < DUMP_ATTEMPTS && result == -EINTR; attempt++) {
        list.clear();
        result = nl80211_dump(request);
    }
    if (result == -EINTR)
        log_warning("nl80211: command %d gave no consistent answer", request.command);
    if (result == 0)
        *out = std::move(list);
    return result;
}

template <typename RECORD, bool (*READ)(nlmsghdr *, RECORD *)>
static bool append(nlmsghdr *message, void *arg)
{
    RECORD record;
    if (!READ(message, &record))
        return false;
    static_cast<std::vector<RECORD> *>(arg)->push_back(std::move(record));
    return true;
}

static bool radio_merge(nlmsghdr *message, void *arg)
{
    return nl80211_radio_merge(message, static_cast<std::vector<ng_nl80211_radio> *>(arg));
}

int ng_nl80211_iface_list(std::vector<ng_nl80211_iface> *out)
{
    return list_dump({.command = NL80211_CMD_GET_INTERFACE,
                      .reader = append<ng_nl80211_iface, nl80211_iface_read>},
                     out);
}

int ng_nl80211_station_list(uint32_t ifindex, std::vector<ng_nl80211_station> *out)
{
    return list_dump({.command = NL80211_CMD_GET_STATION,
                      .ifindex = ifindex,
                      .reader = append<ng_nl80211_station, nl80211_station_read>},
                     out);
}

int ng_nl80211_survey_list(uint32_t ifindex, std::vector<ng_nl80211_survey> *out)
{
    return list_dump({.command = NL80211_CMD_GET_SURVEY,
                      .ifindex = ifindex,
                      .reader = append<ng_nl80211_survey, nl80211_survey_read>},
                     out);
}

int ng_nl80211_radio_list(std::vector<ng_nl80211_radio> *out)
{
    return list_dump({.command = NL80211_CMD_GET_WIPHY, .split_wiphy = true, .reader = radio_merge},
                     out);
}
