// Plays the broker's side of recorded conversations to the tool: it must send what the real one
// sent, byte for byte, and print the same.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "../../host/libubus/wire.h"
#include "bus_testing.h"
#include "captures.h"
#include "support/hex.h"

namespace {

/// A bus of one connection.
struct played_broker {
    temporary_directory folder;
    const std::string socket = folder / "ubus.sock";
    int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);

    played_broker()
    {
        sockaddr_un address;
        EXPECT_TRUE(wire_address(&address, socket.c_str()));
        EXPECT_EQ(bind(listener, (const sockaddr *)&address, sizeof(address)), 0);
        EXPECT_EQ(listen(listener, 5), 0);
    }
    ~played_broker() { wire_close(&listener); }

    /// Plays the tool's part of a conversation, up to the first step that differs.
    void play(int number) const
    {
        raw_client tool;
        for (const capture_step &step : capture_of(number).steps)
            if (step.connection == 'C' && !play_step(&tool, step))
                return;
    }

private:
    bool play_step(raw_client *tool, const capture_step &step) const
    {
        switch (step.what) {
        case capture_step::CONNECT:
            if (readable(listener))
                tool->fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            EXPECT_GE(tool->fd, 0) << "nobody connects";
            return tool->fd >= 0;
        case capture_step::CLOSED_BY_CLIENT:
            EXPECT_TRUE(tool->closed_by_peer());
            return true;
        case capture_step::CLOSED_BY_BROKER:
            tool->disconnect();
            return true;
        case capture_step::TO_BROKER: {
            const std::string got = to_hex(tool->receive());
            EXPECT_EQ(got, to_hex(step.bytes));
            return got == to_hex(step.bytes);
        }
        case capture_step::TO_CLIENT:
            return tool->send(step.bytes);
        }
        return false;
    }
};

struct tool_run {
    int number;
    const char *args; // parted by blanks
    const char *output;
    const char *errors;
    int exit_code;
};

const tool_run TOOL_RUNS[] = {
    {5, "list", "demo.led\ndemo.led2\n", "", 0},
    {6, "-v list demo.led",
     "'demo.led' @67797a71\n"
     "\t\"set\":{\"state\":\"Boolean\",\"brightness\":\"Integer\",\"name\":\"String\"}\n"
     "\t\"get\":{}\n",
     "", 0},
    {7, "list demo.*", "demo.led\ndemo.led2\n", "", 0},
    {8, "list nosuch", "", "Command failed: Not found\n", 4},
    {9, R"(call demo.led set {"state":true,"brightness":-5,"name":"x","extra":[1,{"k":2.5}]})",
     "{\n\t\"state\": true,\n\t\"brightness\": -5,\n\t\"info\": {\n\t\t\"name\": \"x\",\n"
     "\t\t\"modes\": [\n\t\t\t\"on\",\n\t\t\t\"off\"\n\t\t],\n\t\t\"uptime\": 5000000000,\n"
     "\t\t\"load\": 0.500000,\n\t\t\"port\": 8080\n\t}\n}\n",
     "", 0},
    {10, "-S call demo.led get", "{\"i\":1}\n{\"i\":2}\n{\"i\":3}\n", "", 0},
    {11, "call demo.led bogus", "", "Command failed: ubus call demo.led bogus (Method not found)\n",
     253},
    {12, "call nosuch get", "", "Command failed: Not found\n", 4},
    {14, "call demo.led late", "{\n\t\"late\": \"yes\"\n}\n", "", 0},
    {21, R"(send foo.bar {"n":7,"s":"t"})", "", "", 0},
    {22, "send fo", "", "", 0},
    {23, "send ubus.x", "", "Command failed: Permission denied\n", 6},
};

} // namespace

TEST(ToolCaptures, SendsAndPrintsAsRecorded)
{
    for (const tool_run &run : TOOL_RUNS) {
        SCOPED_TRACE("conversation " + std::to_string(run.number));
        const played_broker broker;
        std::thread playing([&] { broker.play(run.number); });
        std::vector<std::string> argv = {UBUS_PROGRAM, "-s", broker.socket};
        std::istringstream words(run.args);
        for (std::string word; words >> word;)
            argv.push_back(word);
        child tool;
        const std::string errors = broker.folder / "errors";
        tool.start(argv, true, errors);
        EXPECT_EQ(tool.read_all(), run.output);
        EXPECT_EQ(tool.wait(), run.exit_code);
        EXPECT_EQ(read_file(errors), run.errors);
        playing.join();
    }
}
