// tarn-settings: looks at settings documents away from any router, with the daemon's own parser.
#include "check.h"
#include "document_file.h"
#include "json_schema.h"
#include "manual.h"

#include "platform/zu/platform_data.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <getopt.h>

namespace {

constexpr int USAGE = 2;

/// What the command line asks for.
struct request {
    const document_kind *kind;
    std::span<char *const> files;
};

int check(const request &asked)
{
    int worst = VERDICT_CLEAN;
    for (const char *file : asked.files)
        worst = std::max<int>(worst, check_file(*asked.kind, file));
    return worst;
}

int schema(const request &asked)
{
    print_json_schema(*asked.kind);
    return 0;
}

int manual(const request &)
{
    print_manual();
    return 0;
}

struct verb {
    const char *name;
    int (*run)(const request &asked);
    bool takes_files;
    bool needs_platform;
    const char *help;
};

constexpr verb VERBS[] = {
    {"check", check, true, true,
     "check FILE...   say what the daemon would make of each document (\"-\": standard input)"},
    {"schema", schema, false, true, "schema          print the documents' JSON Schema"},
    {"manual", manual, false, false, "manual          print every key as docs/settings.md has it"},
};

int usage()
{
    fputs("usage: tarn-settings [--platform FILE] [--kind wifi|wired] VERB [FILE...]\n\n", stderr);
    for (const verb &each : VERBS)
        fprintf(stderr, "  %s\n", each.help);
    fputs(
        "\nFILE of --platform describes the access point, as /etc/tarn/platform.json does on it\n"
        "(the default). Status of check: 0 taken, 1 taken with something passed over, 2 refused.\n",
        stderr);
    return USAGE;
}

bool load_platform(const char *path)
{
    std::string text, error;
    if (read_whole(path, text, error) && _parse_platform_data(text.c_str()))
        return true;
    fprintf(stderr, "%s: %s\n", path, error.empty() ? "is no platform description" : error.c_str());
    return false;
}

const document_kind *kind_of(const char *name)
{
    for (const document_kind &kind : document_kinds())
        if (strcmp(kind.name, name) == 0)
            return &kind;
    return nullptr;
}

const verb *verb_of(const char *name)
{
    for (const verb &each : VERBS)
        if (name && strcmp(each.name, name) == 0)
            return &each;
    return nullptr;
}

} // namespace

int main(int argc, char **argv)
{
    static const option OPTIONS[] = {
        {"platform", required_argument, nullptr, 'p'},
        {"kind", required_argument, nullptr, 'k'},
        {},
    };
    const char *platform = "/etc/tarn/platform.json";
    request asked = {&document_kinds().front(), {}};
    for (int option; (option = getopt_long(argc, argv, "p:k:", OPTIONS, nullptr)) != -1;) {
        if (option == 'p')
            platform = optarg;
        else if (option != 'k' || !(asked.kind = kind_of(optarg)))
            return usage();
    }
    const verb *found = verb_of(argv[optind]);
    if (!found)
        return usage();
    asked.files = {argv + optind + 1, argv + argc};
    if (asked.files.empty() == found->takes_files)
        return usage();
    if (found->needs_platform && !load_platform(platform))
        return USAGE;
    return found->run(asked);
}
