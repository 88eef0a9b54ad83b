// The `uci` tool: its options, the table of commands, and batch input. What the commands do is in
// uci_commands.cpp.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <strings.h>
#include <unistd.h>
#include <vector>

#include "uci_tool.h"

constexpr int EXIT_USAGE = 255;
/// Words of a batch line: the command and at most two arguments.
constexpr size_t BATCH_WORDS = 3;

namespace {

struct command {
    const char *name;
    int least, most; ///< arguments
    int (*run)(uci_tool &tool, char **arguments, int count);
};

} // namespace

static int run_batch(uci_tool &tool, char **arguments, int count);

constexpr command COMMANDS[] = {
    {"get", 1, 1, uci_tool_get},
    {"set", 1, 1, uci_tool_set},
    {"add", 2, 2, uci_tool_add},
    {"add_list", 1, 1, uci_tool_add_list},
    {"del_list", 1, 1, uci_tool_del_list},
    {"delete", 1, 1, uci_tool_delete},
    {"del", 1, 1, uci_tool_delete},
    {"rename", 1, 1, uci_tool_rename},
    {"ren", 1, 1, uci_tool_rename},
    {"reorder", 1, 1, uci_tool_reorder},
    {"revert", 1, 1, uci_tool_revert},
    {"show", 0, 1, uci_tool_show},
    {"export", 0, 1, uci_tool_export},
    {"changes", 0, 1, uci_tool_changes},
    {"commit", 0, 1, uci_tool_commit},
    {"import", 0, 1, uci_tool_import},
    {"batch", 0, 0, run_batch},
};

static void usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [options] <command> [arguments]\n\n"
            "Commands:\n"
            "  batch                                     commands from standard input\n"
            "  export, show, changes, commit [<package>]\n"
            "  import [<package>]                        from standard input\n"
            "  add <package> <type>\n"
            "  get, revert, delete <package>.<section>[.<option>]\n"
            "  set <package>.<section>[.<option>]=<value>\n"
            "  add_list, del_list <package>.<section>.<option>=<value>\n"
            "  delete <package>.<section>.<list>=<index>\n"
            "  rename <package>.<section>[.<option>]=<name>\n"
            "  reorder <package>.<section>=<position>\n\n"
            "Options:\n"
            "  -c <dir>   configuration directory (" UCI_CONFDIR ")\n"
            "  -C <dir>   override directory (" UCI_CONF2DIR "); empty: none\n"
            "  -t <dir>   save directory (" UCI_SAVEDIR ")\n"
            "  -p <dir>   one more directory to read changes from\n"
            "  -P <dir>   save directory of a state that is never committed\n"
            "  -f <file>  read this file instead of standard input\n"
            "  -d <text>  between the items of a list\n"
            "  -m         import: merge into the package, as changes\n"
            "  -n, -N     name nameless sections on export, or do not\n"
            "  -X         show: generated names of nameless sections\n"
            "  -s, -S     refuse a file with a bad line, or report and skip the line\n"
            "  -q         no error messages\n\n",
            program);
}

static const command *find_command(const char *name)
{
    for (const command &entry : COMMANDS)
        if (!strcasecmp(entry.name, name))
            return &entry;
    return nullptr;
}

static bool takes(const command *entry, int count)
{
    return entry && count >= entry->least && count <= entry->most;
}

/// One line of batch input. False when it asks for the end.
static bool batch_line(uci_tool &tool, std::vector<char *> &words)
{
    if (words.size() > BATCH_WORDS) {
        fprintf(stderr, "Too many arguments\n");
        return true;
    }
    if (!strcasecmp(words[0], "exit"))
        return false;
    const int count = static_cast<int>(words.size()) - 1;
    const command *entry = find_command(words[0]);
    if (!takes(entry, count) || entry->run == run_batch)
        fprintf(stderr, "Unknown command\n");
    else
        (void)entry->run(tool, words.data() + 1, count);
    uci_tool_unload_all(tool);
    return true;
}

struct word_deleter {
    void operator()(char *text) const { free(text); }
};

static int run_batch(uci_tool &tool, char **, int)
{
    for (bool more = true; more;) {
        char *line = nullptr, *text = nullptr;
        std::vector<std::unique_ptr<char, word_deleter>> owned;
        std::vector<char *> words;
        while (!uci_parse_argument(tool.ctx, tool.input, &line, &text) && text) {
            owned.emplace_back(text);
            words.push_back(text);
        }
        if (tool.ctx->err && !tool.quiet)
            uci_perror(tool.ctx, tool.name);
        else if (!words.empty())
            more = batch_line(tool, words);
        more = more && line;
    }
    return 0;
}

/// One option that stands for a setting of the context. False for an unknown one.
static bool set_option(uci_tool &tool, int option, const char *value)
{
    const auto set_flags = [&tool](unsigned set, unsigned clear) {
        tool.ctx->flags = static_cast<uci_flags>((tool.ctx->flags | set) & ~clear);
    };
    switch (option) {
    case 'c':
        return uci_set_confdir(tool.ctx, value) == UCI_OK;
    case 'C':
        return uci_set_conf2dir(tool.ctx, *value ? value : nullptr) == UCI_OK;
    case 'P':
        tool.state_only = true;
        return uci_set_savedir(tool.ctx, value) == UCI_OK;
    case 't':
        return uci_set_savedir(tool.ctx, value) == UCI_OK;
    case 'p':
        (void)uci_add_delta_path(tool.ctx, value);
        return true;
    case 'd':
        tool.delimiter = value;
        return true;
    case 'f':
        tool.input = fopen(value, "re");
        if (!tool.input)
            perror(tool.name);
        return tool.input != nullptr;
    case 'n':
        set_flags(UCI_FLAG_EXPORT_NAME, 0);
        return true;
    case 'N':
        set_flags(0, UCI_FLAG_EXPORT_NAME);
        return true;
    case 's':
        set_flags(UCI_FLAG_STRICT, UCI_FLAG_PERROR);
        return true;
    case 'S':
        set_flags(UCI_FLAG_PERROR, UCI_FLAG_STRICT);
        return true;
    case 'm':
        return tool.merge = true;
    case 'q':
        return tool.quiet = true;
    case 'X':
        return tool.generated_names = true;
    }
    return false;
}

/// Takes the options, then runs the command.
static int run(uci_tool &tool, int argc, char **argv)
{
    int option;
    while ((option = getopt(argc, argv, "+c:C:d:f:mnNp:P:qsSt:X")) != -1)
        if (!set_option(tool, option, optarg)) {
            if (option != 'f')
                usage(tool.name);
            return option == 'f' ? 1 : 0;
        }
    if (optind >= argc || !strcasecmp(argv[optind], "help")) {
        usage(tool.name);
        return 0;
    }
    const int count = argc - optind - 1;
    const command *entry = find_command(argv[optind]);
    if (takes(entry, count))
        return entry->run(tool, argv + optind + 1, count);
    usage(tool.name);
    return EXIT_USAGE;
}

int main(int argc, char **argv)
{
    uci_tool tool{};
    tool.name = argv[0];
    tool.ctx = uci_alloc_context();
    tool.input = stdin;
    tool.delimiter = " ";
    const int status = run(tool, argc, argv);
    uci_free_context(tool.ctx);
    if (tool.input && tool.input != stdin)
        fclose(tool.input);
    return fflush(stdout) == 0 ? status : 1;
}
