// What tests of the bus share.
#include "bus_testing.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../../host/libubus/wire.h"

// Processes.

void child::start(const std::vector<std::string> &argv, bool read_output, const std::string &errors)
{
    int ends[2] = {-1, -1};
    if (read_output && pipe2(ends, O_CLOEXEC) < 0)
        return;
    std::vector<char *> args;
    for (const std::string &arg : argv)
        args.push_back((char *)arg.c_str());
    args.push_back(nullptr);
    pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (read_output)
            dup2(ends[1], STDOUT_FILENO);
        if (!errors.empty())
            dup2(open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        execv(args[0], args.data());
        _exit(127);
    }
    if (ends[1] >= 0)
        close(ends[1]);
    out = ends[0];
}

child::~child()
{
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    if (out >= 0)
        close(out);
}

void child::signal(int number) const
{
    if (pid > 0)
        kill(pid, number);
}

int child::wait()
{
    int status = 0;
    if (!eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }))
        return -1;
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool readable(int fd, int timeout_ms)
{
    pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, timeout_ms) > 0;
}

bool child::has_output() const
{
    return readable(out, 0);
}

std::string child::read_line() const
{
    std::string line;
    char c;
    while (readable(out, PATIENCE_MS) && read(out, &c, 1) == 1 && c != '\n')
        line += c;
    return line;
}

std::string child::read_all() const
{
    std::string text;
    char part[4096];
    ssize_t n;
    while (readable(out, PATIENCE_MS) && (n = read(out, part, sizeof(part))) > 0)
        text.append(part, (size_t)n);
    return text;
}

void bus_broker::start()
{
    process.start({UBUSD_PROGRAM, "-s", socket}, false);
    raw_client probe;
    EXPECT_TRUE(eventually([&] {
        probe.connect(socket);
        return probe.fd >= 0;
    })) << "the broker does not listen";
}

void bus_broker::stop()
{
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait(), 0);
}

// Raw frames.

raw_client::raw_client(const std::string &socket)
{
    connect(socket);
    const frame hello = receive();
    EXPECT_EQ(frame_type(hello), UBUS_MSG_HELLO);
    id = frame_peer(hello);
}

raw_client::~raw_client()
{
    disconnect();
}

raw_client::raw_client(raw_client &&other) noexcept : fd(other.fd), id(other.id)
{
    other.fd = -1;
}

raw_client &raw_client::operator=(raw_client &&other) noexcept
{
    std::swap(fd, other.fd);
    std::swap(id, other.id);
    return *this;
}

void raw_client::connect(const std::string &socket)
{
    sockaddr_un address;
    EXPECT_TRUE(wire_address(&address, socket.c_str()));
    fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(fd, (const sockaddr *)&address, sizeof(address)) != 0)
        disconnect();
}

void raw_client::disconnect()
{
    wire_close(&fd);
}

bool raw_client::send(const std::string &bytes, int passed_fd) const
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        iovec part = {(void *)(bytes.data() + sent), bytes.size() - sent};
        msghdr out{};
        out.msg_iov = &part;
        out.msg_iovlen = 1;
        if (!sent && passed_fd >= 0) {
            out.msg_control = control;
            out.msg_controllen = sizeof(control);
            cmsghdr *c = CMSG_FIRSTHDR(&out);
            *c = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
            memcpy(CMSG_DATA(c), &passed_fd, sizeof(int));
        }
        const ssize_t n = sendmsg(fd, &out, MSG_NOSIGNAL);
        if (n < 0)
            return false;
        sent += (size_t)n;
    }
    return true;
}

// Fills `bytes`; false when the stream ends or stalls before.
static bool receive_exactly(int fd, char *bytes, size_t len, int timeout_ms, int *fds)
{
    size_t got = 0;
    while (got < len) {
        int passed = -1;
        if (!readable(fd, timeout_ms))
            return false;
        const ssize_t n = wire_recv(fd, bytes + got, len - got, &passed);
        if (passed >= 0 && fds)
            ++*fds;
        wire_close(&passed);
        if (n <= 0)
            return false;
        got += (size_t)n;
    }
    return true;
}

frame raw_client::receive(int timeout_ms, int *fds) const
{
    frame f(sizeof(wire_head), 0);
    if (!receive_exactly(fd, f.data(), f.size(), timeout_ms, fds))
        return {};
    const size_t len = blob_raw_len((const blob_attr *)(f.data() + sizeof(ubus_msghdr)));
    f.resize(sizeof(ubus_msghdr) + len);
    if (!receive_exactly(fd, f.data() + sizeof(wire_head), f.size() - sizeof(wire_head),
                         PATIENCE_MS, fds))
        return {};
    return f;
}

std::vector<frame> raw_client::request(const frame &bytes) const
{
    std::vector<frame> replies;
    if (!send(bytes))
        return replies;
    for (;;) {
        frame f = receive();
        if (f.empty())
            return replies;
        const bool last = frame_type(f) == UBUS_MSG_STATUS && frame_seq(f) == frame_seq(bytes);
        replies.push_back(std::move(f));
        if (last)
            return replies;
    }
}

int raw_client::status_of(const frame &bytes) const
{
    const std::vector<frame> replies = request(bytes);
    return replies.empty() ? -1 : frame_status(replies.back());
}

bool raw_client::closed_by_peer() const
{
    char c;
    return readable(fd, PATIENCE_MS) && recv(fd, &c, 1, 0) <= 0;
}

bool raw_client::nothing_waiting() const
{
    static constexpr uint16_t SEQ = 0xfffe;
    const std::vector<frame> replies = request(make_frame(UBUS_MSG_PING, SEQ, 0x7fffffff));
    return replies.size() == 2 && frame_seq(replies[0]) == SEQ;
}

frame make_frame(uint8_t type, uint16_t seq, uint32_t peer,
                 const std::function<void(blob_buf *)> &fill)
{
    wire_buf b;
    if (fill)
        fill(&b.b);
    const ubus_msghdr hdr = wire_header(type, seq, peer);
    return frame((const char *)&hdr, sizeof(hdr)) +
           frame((const char *)b.msg(), blob_raw_len(b.msg()));
}

static ubus_msghdr header_of(const frame &f)
{
    ubus_msghdr hdr{};
    hdr.type = 0xff;
    if (f.size() >= sizeof(hdr))
        memcpy(&hdr, f.data(), sizeof(hdr));
    return wire_to_host(hdr);
}

uint8_t frame_type(const frame &f)
{
    return header_of(f).type;
}

uint16_t frame_seq(const frame &f)
{
    return header_of(f).seq;
}

uint32_t frame_peer(const frame &f)
{
    return header_of(f).peer;
}

std::string frame_attribute(const frame &f, unsigned id)
{
    if (f.size() < sizeof(wire_head))
        return {};
    const blob_attr *attr = wire_parse((blob_attr *)(f.data() + sizeof(ubus_msghdr)))[id];
    return attr ? std::string((const char *)blob_data(attr), blob_len(attr)) : std::string();
}

uint32_t frame_number(const frame &f, unsigned id)
{
    const std::string value = frame_attribute(f, id);
    uint32_t number = 0;
    if (value.size() == sizeof(number))
        memcpy(&number, value.data(), sizeof(number));
    return be32_to_cpu(number);
}

int frame_status(const frame &f)
{
    if (frame_type(f) != UBUS_MSG_STATUS || frame_attribute(f, UBUS_ATTR_STATUS).empty())
        return -1;
    return (int)frame_number(f, UBUS_ATTR_STATUS);
}

frame status_frame(uint16_t seq, uint32_t peer, int status, uint32_t object)
{
    return make_frame(UBUS_MSG_STATUS, seq, peer, [=](blob_buf *b) {
        blob_put_int32(b, UBUS_ATTR_STATUS, (uint32_t)status);
        if (object)
            blob_put_int32(b, UBUS_ATTR_OBJID, object);
    });
}

frame reply_to(const frame &call, int status)
{
    return status_frame(frame_seq(call), frame_peer(call), status,
                        frame_number(call, UBUS_ATTR_OBJID));
}

frame lookup_frame(uint16_t seq, const char *path)
{
    return make_frame(UBUS_MSG_LOOKUP, seq, 0, [path](blob_buf *b) {
        if (path)
            blob_put_string(b, UBUS_ATTR_OBJPATH, path);
    });
}

static void put_data(blob_buf *b, const filler &data)
{
    void *nest = blob_nest_start(b, UBUS_ATTR_DATA);
    if (data)
        data(b);
    blob_nest_end(b, nest);
}

frame invoke_frame(uint16_t seq, uint32_t object, const char *method, const filler &data)
{
    return make_frame(UBUS_MSG_INVOKE, seq, object, [&](blob_buf *b) {
        blob_put_int32(b, UBUS_ATTR_OBJID, object);
        blob_put_string(b, UBUS_ATTR_METHOD, method);
        put_data(b, data);
    });
}

frame event_frame(const char *id, const std::string &text)
{
    return invoke_frame(7, UBUS_SYSTEM_OBJECT_EVENT, "send", [&](blob_buf *b) {
        if (id)
            blobmsg_add_string(b, "id", id);
        void *data = blobmsg_open_table(b, "data");
        blobmsg_add_string(b, "text", text.c_str());
        blobmsg_close_table(b, data);
    });
}

frame listen_frame(uint32_t object, const char *pattern)
{
    return invoke_frame(6, UBUS_SYSTEM_OBJECT_EVENT, "register", [=](blob_buf *b) {
        if (object)
            blobmsg_add_u32(b, "object", object);
        if (pattern)
            blobmsg_add_string(b, "pattern", pattern);
    });
}

frame objects_frame(uint8_t type, uint32_t object, uint32_t target)
{
    return make_frame(type, 5, 0, [=](blob_buf *b) {
        if (object)
            blob_put_int32(b, UBUS_ATTR_OBJID, object);
        if (target)
            blob_put_int32(b, UBUS_ATTR_TARGET, target);
    });
}

frame notify_frame(uint32_t object, const char *method, const filler &data)
{
    return make_frame(UBUS_MSG_NOTIFY, 8, object, [&](blob_buf *b) {
        blob_put_int32(b, UBUS_ATTR_OBJID, object);
        if (method)
            blob_put_string(b, UBUS_ATTR_METHOD, method);
        if (data)
            put_data(b, data);
    });
}

frame add_object_frame(uint16_t seq, const char *path, bool typed)
{
    return make_frame(UBUS_MSG_ADD_OBJECT, seq, 0, [path, typed](blob_buf *b) {
        if (!path)
            return;
        blob_put_string(b, UBUS_ATTR_OBJPATH, path);
        if (!typed)
            return;
        void *signature = blob_nest_start(b, UBUS_ATTR_SIGNATURE);
        blobmsg_close_table(b, blobmsg_open_table(b, "get"));
        blob_nest_end(b, signature);
    });
}

uint32_t publish(const raw_client &client, const char *path)
{
    for (const frame &f : client.request(add_object_frame(1, path)))
        if (frame_type(f) == UBUS_MSG_DATA)
            return frame_number(f, UBUS_ATTR_OBJID);
    return 0;
}

// Waiting.

bool pump(ubus_context *ctx, const std::function<bool()> &done)
{
    return eventually([&] {
        if (!done() && readable(ctx->sock.fd, 10))
            ubus_handle_event(ctx);
        return done();
    });
}

bool run_loop(const std::function<bool()> &done)
{
    return eventually([&] {
        if (!done())
            (void)uloop_run_timeout(10);
        return done();
    });
}
