// Plays the broker's side of recorded conversations.
#include "fake_broker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "../../host/libubus/wire.h"

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
    wire_close(&connection);
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

static bool readable(int fd)
{
    pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, PATIENCE_MS) > 0;
}

bool fake_broker::expect(const std::string &bytes)
{
    raw_client reader;
    reader.fd = connection;
    const frame got = reader.receive();
    reader.fd = -1;
    if (got.empty() || (!bytes.empty() && got != bytes))
        fault = "expected " + hex(bytes) + "\ngot      " + hex(got);
    return fault.empty();
}

bool fake_broker::play_step(const capture_step &step)
{
    char c;
    raw_client writer;
    switch (step.what) {
    case capture_step::CONNECT:
        wire_close(&connection);
        connection = readable(listener) ? accept4(listener, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        if (connection < 0)
            fault = "nobody connects";
        break;
    case capture_step::CLOSED_BY_CLIENT:
        if (!readable(connection) || recv(connection, &c, 1, 0) != 0)
            fault = "the client does not close";
        break;
    case capture_step::CLOSED_BY_BROKER:
        wire_close(&connection);
        break;
    case capture_step::TO_BROKER:
        return expect(step.bytes);
    case capture_step::TO_CLIENT: {
        int fd = step.has_fd ? open("/dev/null", O_RDONLY | O_CLOEXEC) : -1;
        writer.fd = connection;
        if (!writer.send(step.bytes, fd))
            fault = "cannot send";
        writer.fd = -1;
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
    for (ssize_t n;
         connection >= 0 && (n = recv(connection, part, sizeof(part), MSG_DONTWAIT)) > 0;)
        bytes.append(part, (size_t)n);
    wire_close(&connection);
    return hex(bytes);
}

std::vector<capture_step> steps_of(int number, char connection)
{
    std::vector<capture_step> steps;
    for (const capture_step &step : capture_of(number).steps)
        if (step.connection == connection)
            steps.push_back(step);
    return steps;
}

std::vector<capture_step> answered(const std::vector<frame> &replies)
{
    std::vector<capture_step> steps = {{capture_step::TO_BROKER, ' ', {}, false}};
    for (const frame &reply : replies)
        steps.push_back({capture_step::TO_CLIENT, ' ', reply, false});
    return steps;
}
