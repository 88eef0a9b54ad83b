// tarn-settings: looks at settings documents with the daemon's own parser and writer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <getopt.h>

#include "check.h"
#include "checkin_document.h"
#include "document_file.h"
#include "json_schema.h"
#include "manual.h"
#include "platform/zu/platform_data.h"
#include "preview.h"

constexpr int USAGE = 2;
constexpr char DEFAULT_PLATFORM[] = "/etc/tarn/platform.json";

/// What the command line asks for.
struct request {
    const document_kind *kind;
    std::span<char *const> files;
    const char *config;
    bool as_json, with_secrets;
};

static int check(const request &asked)
{
    int worst = VERDICT_CLEAN;
    for (const char *file : asked.files)
        worst = std::max<int>(worst, check_file(*asked.kind, file));
    return worst;
}

static int preview(const request &asked)
{
    return preview_file(
        {asked.kind, asked.files[0], asked.config, asked.as_json, asked.with_secrets});
}

static int schema(const request &asked)
{
    print_json_schema(*asked.kind);
    return 0;
}

static int manual(const request &)
{
    print_manual();
    return 0;
}

static int checkin_schema(const request &)
{
    print_checkin_schema();
    return 0;
}

static int checkin_manual(const request &)
{
    print_checkin_manual();
    return 0;
}

struct verb {
    const char *name;
    int (*run)(const request &asked);
    size_t files_max; ///< all that takes files takes one at least
    bool needs_platform;
    const char *help;
};

constexpr verb VERBS[] = {
    {"check", check, SIZE_MAX, true,
     "check FILE...   say what the daemon would make of each document (\"-\": standard input)"},
    {"preview", preview, 1, true,
     "preview FILE    try the document on a copy of a configuration and say what changes"},
    {"schema", schema, 0, true, "schema          print the documents' JSON Schema"},
    {"manual", manual, 0, false, "manual          print every key as docs/settings.md has it"},
    {"checkin-schema", checkin_schema, 0, false,
     "checkin-schema  print the JSON Schema of what the wireless package checks in with"},
    {"checkin-manual", checkin_manual, 0, false,
     "checkin-manual  print it as docs/checkin.md has it"},
};

static void print_usage(FILE *to)
{
    fputs("usage: tarn-settings [OPTION...] VERB [FILE...]\n\n", to);
    for (const verb &each : VERBS)
        fprintf(to, "  %s\n", each.help);
    fputs(R"(
  --platform FILE   the access point, as its /etc/tarn/platform.json describes it (the default)
  --kind KIND       "wifi" (the default) or "wired"
  --config DIR      preview: the configuration, instead of /etc/config
  --json            preview: one JSON object instead of text
  --secrets         preview: show keys instead of ***
  --help, --version

Status: 0 taken, 1 taken with something passed over, cut or hardly meant (lint), 2 refused or wrong
usage, 3 no preview.
)",
          to);
}

static int usage()
{
    print_usage(stderr);
    return USAGE;
}

/// For people on a machine that is no access point.
constexpr char NO_PLATFORM[] =
    R"(No access point is described here. What a document may hold depends on its radios: name a description
with --platform, for example the file examples/access_point/platform.json of the sources, or copy
/etc/tarn/platform.json from an access point.
)";

static bool load_platform(const char *path)
{
    const bool named = path != nullptr;
    std::string text, error;
    if (!named)
        path = DEFAULT_PLATFORM;
    if (read_whole(path, text, error) && _parse_platform_data(text.c_str()))
        return true;
    fprintf(stderr, "%s: %s\n", path, error.empty() ? "is no platform description" : error.c_str());
    if (!named)
        fputs(NO_PLATFORM, stderr);
    return false;
}

static const document_kind *kind_of(const char *name)
{
    for (const document_kind &kind : document_kinds())
        if (strcmp(kind.name, name) == 0)
            return &kind;
    return nullptr;
}

static const verb *verb_of(const char *name)
{
    for (const verb &each : VERBS)
        if (name && strcmp(each.name, name) == 0)
            return &each;
    return nullptr;
}

int main(int argc, char **argv)
{
    static const option OPTIONS[] = {
        {"platform", required_argument, nullptr, 'p'}, {"kind", required_argument, nullptr, 'k'},
        {"config", required_argument, nullptr, 'c'},   {"json", no_argument, nullptr, 'j'},
        {"secrets", no_argument, nullptr, 's'},        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},        {},
    };
    const char *platform = nullptr;
    request asked = {&document_kinds().front(), {}, "/etc/config", false, false};
    for (int option; (option = getopt_long(argc, argv, "p:k:c:jsh", OPTIONS, nullptr)) != -1;) {
        if (option == 'p')
            platform = optarg;
        else if (option == 'c')
            asked.config = optarg;
        else if (option == 'j')
            asked.as_json = true;
        else if (option == 's')
            asked.with_secrets = true;
        else if (option == 'h')
            return print_usage(stdout), 0;
        else if (option == 'v')
            return puts("tarn-settings " TARN_VERSION), 0;
        else if (option != 'k' || !(asked.kind = kind_of(optarg)))
            return usage();
    }
    const verb *found = verb_of(argv[optind]);
    if (!found)
        return usage();
    asked.files = {argv + optind + 1, argv + argc};
    if (asked.files.empty() != (found->files_max == 0) || asked.files.size() > found->files_max)
        return usage();
    if (found->needs_platform && !load_platform(platform))
        return USAGE;
    return found->run(asked);
}
