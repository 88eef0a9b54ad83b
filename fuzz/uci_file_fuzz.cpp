// libraries: openwrt::uci
// A config file and a delta file through the loader: the input is both, parted by its first NUL.
// What loads must commit; and what a config file alone exports must load as the same text again (a
// delta may rename two sections to one name), unless a section's type holds what a reader takes for
// more than a letter: types are written bare, on a router too.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <uci.h>

#include "../tests/support/temporary_directory.h"

/// Lives as long as the program: its folders are removed at the end.
static const std::string &directory(const std::string &part)
{
    static const temporary_directory root;
    static const std::string conf = root / "config", save = root / "save";
    static const bool made = mkdir(conf.c_str(), 0700) == 0 && mkdir(save.c_str(), 0700) == 0;
    if (!made)
        abort();
    return part == "config" ? conf : save;
}

static uci_context *open_context(bool strict)
{
    uci_context *ctx = uci_alloc_context();
    uci_set_confdir(ctx, directory("config").c_str());
    uci_set_conf2dir(ctx, nullptr);
    uci_set_savedir(ctx, directory("save").c_str());
    if (!strict)
        ctx->flags = UCI_FLAG_SAVED_DELTA;
    return ctx;
}

static std::string exported(uci_context *ctx, uci_package *p)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    uci_export(ctx, stream, p, false);
    fclose(stream);
    const std::string result(text, size);
    free(text);
    return result;
}

static bool types_are_plain(uci_package *p)
{
    uci_element *e;
    uci_foreach_element(&p->sections, e)
    {
        if (strpbrk(uci_to_section(e)->type, "'\"\\#;"))
            return false;
    }
    return true;
}

static void check_round_trip(const std::string &text)
{
    uci_context *ctx = uci_alloc_context();
    uci_package *p = nullptr;
    FILE *stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    if (uci_import(ctx, stream, "net", &p, true) != UCI_OK || exported(ctx, p) != text)
        abort();
    fclose(stream);
    uci_free_context(ctx);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    const size_t parting = input.find('\0');
    write_file(directory("config") + "/net", input.substr(0, parting));
    write_file(directory("save") + "/net",
               parting == std::string::npos ? "" : input.substr(parting + 1));
    for (const bool strict : {true, false}) {
        uci_context *ctx = open_context(strict);
        uci_package *p = nullptr;
        if (uci_load(ctx, "net", &p) == UCI_OK) {
            if (parting == std::string::npos && types_are_plain(p))
                check_round_trip(exported(ctx, p));
            if (uci_commit(ctx, &p, false) != UCI_OK)
                abort();
        }
        uci_free_context(ctx);
    }
    return 0;
}
