// tarn-status: how the node stands, on one screen, asked of the daemon over the bus.
#include <cstdio>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

#include "screen.h"

constexpr char USAGE[] =
    "Usage: tarn-status [--watch | --json]\n"
    "  How this node stands: its way to the internet and why, mesh, radios, what is held back, "
    "health.\n"
    "  --watch    again every two seconds; Ctrl-C ends it\n"
    "  --json     the daemon's own answers, without keys: wired, wifi, checkin, health\n"
    "  --help, --version\n"
    "Exit status: 0, 1 when the bus or the daemon does not answer, 2 for wrong usage.\n";
constexpr size_t DEFAULT_COLUMNS = 80;
constexpr unsigned WATCH_S = 2;

static size_t terminal_columns()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return DEFAULT_COLUMNS;
}

/// 0, or 1 (said) when nobody answers.
static int show(bool as_json, bool clear)
{
    std::string why;
    const json_handle facts = facts_ask(&why);
    const bool terminal = isatty(STDOUT_FILENO) != 0;
    if (clear && terminal) // what was known goes also when nobody answers any more
        fputs("\033[H\033[2J", stdout);
    if (!facts) {
        fflush(stdout);
        fprintf(stderr, "tarn-status: %s\n", why.c_str());
        return 1;
    }
    if (as_json)
        puts(json_object_to_json_string_ext(facts.get(), JSON_C_TO_STRING_PRETTY |
                                                             JSON_C_TO_STRING_NOSLASHESCAPE));
    else
        fputs(screen_of(facts.get(), terminal_columns(), terminal).c_str(), stdout);
    fflush(stdout);
    return 0;
}

int main(int argc, char **argv)
{
    const char *option = argc > 1 ? argv[1] : "";
    const bool watch = strcmp(option, "--watch") == 0, json = strcmp(option, "--json") == 0;
    if (strcmp(option, "--help") == 0 || strcmp(option, "--version") == 0) {
        fputs(option[2] == 'h' ? USAGE : "tarn-status " TARN_VERSION "\n", stdout);
        return 0;
    }
    if (argc > 2 || (argc == 2 && !watch && !json)) {
        fputs(USAGE, stderr);
        return 2;
    }
    int status = show(json, watch);
    while (watch && !ferror(stdout)) {
        sleep(WATCH_S);
        status = show(false, true);
    }
    return status;
}
