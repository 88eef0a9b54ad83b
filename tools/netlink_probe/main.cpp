// netlink-probe: picks the command and checks how many arguments it got. What the layer logs goes
// to stderr.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/zu/log.h"
#include "probe.h"

constexpr int EXIT_USAGE = 2;

std::optional<uint32_t> number_of(const char *text, uint32_t limit)
{
    char *end = nullptr;
    const unsigned long long number = strtoull(text, &end, 10);
    if (isdigit((unsigned char)*text) && *end == '\0' && number <= limit)
        return (uint32_t)number;
    fprintf(stderr, "netlink-probe: '%s' is not a number from 0 to %u\n", text, limit);
    return std::nullopt;
}

static void help(FILE *out)
{
    fputs("netlink-probe [-d LEVEL] COMMAND [ARGS]\n"
          "Calls the kernel access layer and prints what it answered, one entry a line. Exit "
          "status 1: it failed, or\n"
          "the answer is no. LEVEL is what is logged to stderr: 1 errors (the default) to 5 "
          "everything.\n\n",
          out);
    for (auto commands : {LINK_COMMANDS, RADIO_COMMANDS})
        for (const probe_command &command : commands)
            fprintf(out, "  %-9s %-40s %s\n", command.name, command.usage, command.help);
}

static const probe_command *command_find(const char *name)
{
    for (auto commands : {LINK_COMMANDS, RADIO_COMMANDS})
        for (const probe_command &command : commands)
            if (strcmp(command.name, name) == 0)
                return &command;
    return nullptr;
}

/// Whether so many arguments fit the command's usage, which counts for a word each.
static bool count_fits(const char *usage, size_t count)
{
    size_t least = 0, most = 0;
    for (const char *word = usage; *word != '\0';) {
        most++;
        least += *word != '[';
        word += strcspn(word, " ");
        word += strspn(word, " ");
    }
    return count >= least && count <= most;
}

int main(int argc, char **argv)
{
    std::span args(argv + std::min(argc, 1), argv + argc);
    gDebug_file = stderr;
    debug_set_level(ZU_LOG_ERROR);
    if (args.size() >= 2 && strcmp(args[0], "-d") == 0) {
        auto level = number_of(args[1], ZU_LOG_DEBUG);
        if (!level)
            return EXIT_USAGE;
        debug_set_level((int)*level);
        args = args.subspan(2);
    }
    if (!args.empty() && strcmp(args[0], "help") == 0) {
        help(stdout);
        return 0;
    }
    const probe_command *command = args.empty() ? nullptr : command_find(args[0]);
    if (!command || !count_fits(command->usage, args.size() - 1)) {
        help(stderr);
        return EXIT_USAGE;
    }
    return command->run(args.subspan(1));
}
