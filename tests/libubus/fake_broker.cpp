// Plays the broker's side of recorded conversations.
#include "fake_broker.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "../../host/libubus/wire.h"
#include "support/hex.h"

fake_broker::fake_broker()
{
    sockaddr_un address;
    (void)wire_address(&address, socket.c_str());
    listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, (const sockaddr *)&address, sizeof(address)) < 0 || listen(listener, 5) < 0)
        fault = "cannot listen";
}

fake_broker::~fake_broker()
{
    (void)finish();
    wire_close(&listener);
}

void fake_broker::play(std::vector<capture_step> steps)
{
    (void)finish();
    busy = true;
    thread = std::thread([this, s = std::move(steps)] { run(s); });
}

std::string fake_broker::finish()
{
    if (thread.joinable())
        thread.join();
    return fault;
}

void fake_broker::run(const std::vector<capture_step> &steps)
{
    for (const capture_step &step : steps)
        if (!fault.empty() || !play_step(step))
            break;
    busy = false;
}

bool fake_broker::expect(const std::string &bytes)
{
    const frame got = connection.receive();
    if (got.empty() || (!bytes.empty() && got != bytes))
        fault = "expected " + to_hex(bytes) + "\ngot      " + to_hex(got);
    return fault.empty();
}

bool fake_broker::play_step(const capture_step &step)
{
    switch (step.what) {
    case capture_step::CONNECT:
        connection.disconnect();
        if (readable(listener))
            connection.fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection.fd < 0)
            fault = "nobody connects";
        break;
    case capture_step::CLOSED_BY_CLIENT:
        if (!connection.closed_by_peer())
            fault = "the client does not close";
        break;
    case capture_step::CLOSED_BY_BROKER:
        connection.disconnect();
        break;
    case capture_step::TO_BROKER:
        return expect(step.bytes);
    case capture_step::TO_CLIENT: {
        int fd = step.has_fd ? open("/dev/null", O_RDONLY | O_CLOEXEC) : -1;
        if (!connection.send(step.bytes, fd))
            fault = "cannot send";
        wire_close(&fd);
        break;
    }
    }
    return fault.empty();
}

std::string fake_broker::leftover()
{
    (void)finish();
    std::string bytes;
    char part[4096];
    for (ssize_t n; (n = recv(connection.fd, part, sizeof(part), MSG_DONTWAIT)) > 0;)
        bytes.append(part, (size_t)n);
    connection.disconnect();
    return to_hex(bytes);
}

std::vector<capture_step> steps_of(int number, char connection)
{
    std::vector<capture_step> steps;
    for (const capture_step &step : capture_of(number).steps)
        if (step.connection == connection)
            steps.push_back(step);
    return steps;
}

std::vector<capture_step> greeted(char connection)
{
    return {{capture_step::CONNECT, connection, {}, false},
            {capture_step::TO_CLIENT, connection, make_frame(UBUS_MSG_HELLO, 0, 0x2222), false}};
}

std::vector<capture_step> answered(const std::vector<std::vector<frame>> &replies)
{
    std::vector<capture_step> steps;
    for (const std::vector<frame> &to_one : replies) {
        steps.push_back({capture_step::TO_BROKER, ' ', {}, false});
        for (const frame &reply : to_one)
            steps.push_back({capture_step::TO_CLIENT, ' ', reply, false});
    }
    return steps;
}
