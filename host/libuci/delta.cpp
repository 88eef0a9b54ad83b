// Delta files: one line a change, appended by save, applied by load and commit, thinned by revert.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "uci_internal.h"

using namespace libuci;

/// What a line begins with; a plain set begins with nothing.
constexpr char COMMANDS[] = "+- @^|~";

static void delta_free(uci_delta *d)
{
    list_remove(&d->e.list);
    free(d->e.name);
    free(d->section);
    free(d->value);
    delete d;
}

void libuci::delta_free_all(uci_list *list)
{
    uci_element *e, *tmp;
    uci_foreach_element_safe(list, tmp, e) delta_free(uci_to_delta(e));
}

static void delta_append(uci_list *list, uci_command command, const uci_ptr &ptr, const char *value)
{
    uci_delta *d = new uci_delta{};
    d->e.type = UCI_TYPE_DELTA;
    d->cmd = command;
    set_text(d->e.name, ptr.option);
    set_text(d->section, ptr.section);
    set_text(d->value, value);
    list_insert(list->prev, &d->e.list);
}

void libuci::delta_record(uci_package *p, uci_command command, const uci_ptr &ptr,
                          const char *value)
{
    delta_append(&p->delta, command, ptr, value);
}

std::string libuci::delta_file(const char *dir, const uci_package *p)
{
    return std::string(dir) + "/" + p->e.name;
}

// ---- reading

/// One line: the words of a change of package `p`, not yet looked up.
struct delta_line {
    uci_command command;
    std::string text; ///< what ptr's names point into
    uci_ptr ptr;
};

static bool well_formed(const delta_line &line, const uci_package *p)
{
    const uci_ptr &ptr = line.ptr;
    if (strcmp(ptr.package, p->e.name) != 0 || !ptr.section ||
        (ptr.flags & uci_ptr::UCI_LOOKUP_EXTENDED))
        return false;
    switch (line.command) {
    case UCI_CMD_REMOVE:
        return true;
    case UCI_CMD_RENAME:
        return valid_name(ptr.value);
    case UCI_CMD_LIST_ADD:
    case UCI_CMD_LIST_DEL:
        return ptr.option && ptr.value;
    case UCI_CMD_ADD:
    case UCI_CMD_REORDER:
        return !ptr.option && ptr.value;
    case UCI_CMD_CHANGE:
        return ptr.value != nullptr;
    }
    return false;
}

static bool parse_line(uci_parse_context &parser, uci_package *p, delta_line &line)
{
    std::string extra;
    if (next_word(parser, line.text) != word::found || next_word(parser, extra) != word::none)
        return false;
    const char *command = line.text[0] ? strchr(COMMANDS, line.text[0]) : nullptr;
    line.command = command ? static_cast<uci_command>(command - COMMANDS) : UCI_CMD_CHANGE;
    uci_context quiet{}; // a line that does not parse is no error of the caller's context
    uci_parse_context quiet_parser{};
    quiet.pctx = &quiet_parser;
    return uci_parse_ptr(&quiet, &line.ptr, line.text.data() + (command ? 1 : 0)) == UCI_OK &&
           well_formed(line, p);
}

/// True when the line could be applied.
static bool apply_line(uci_package *p, delta_line &line)
{
    uci_ptr &ptr = line.ptr;
    ptr.p = p;
    if (uci_lookup_ptr(p->ctx, &ptr, nullptr, false) != UCI_OK)
        return false;
    return change(line.command, ptr, false) == UCI_OK;
}

int libuci::delta_apply_stream(uci_package *p, FILE *stream)
{
    int applied = 0;
    uci_parse_context parser{};
    parser_start(parser, stream);
    while (next_line(parser)) {
        delta_line line{};
        if (!parse_line(parser, p, line))
            continue;
        if (p->ctx->flags & UCI_FLAG_SAVED_DELTA)
            delta_append(&p->saved_delta, line.command, line.ptr, line.ptr.value);
        applied += apply_line(p, line);
    }
    return applied;
}

// ---- saving

static void write_delta(FILE *stream, const uci_package *p, const uci_delta *d)
{
    if (d->cmd != UCI_CMD_CHANGE)
        putc(COMMANDS[d->cmd], stream);
    fprintf(stream, "%s.%s", p->e.name, d->section ? d->section : "");
    if (d->e.name)
        fprintf(stream, ".%s", d->e.name);
    if (d->value) {
        putc('=', stream);
        write_quoted(stream, d->value);
    }
    putc('\n', stream);
}

static mode_t mode_of(const char *path, mode_t otherwise)
{
    struct stat info;
    return path && stat(path, &info) == 0 ? info.st_mode & 07777 : otherwise;
}

/// Appends all deltas or none: what a full disk cut short is taken back.
static int append_deltas(uci_package *p, FILE *stream)
{
    struct stat before;
    if (fstat(fileno(stream), &before) != 0)
        return UCI_ERR_IO;
    uci_element *e;
    uci_foreach_element(&p->delta, e) write_delta(stream, p, uci_to_delta(e));
    if (fflush(stream) == 0 && !ferror(stream))
        return UCI_OK;
    (void)!ftruncate(fileno(stream), before.st_size);
    return UCI_ERR_IO;
}

static int save_to_delta_file(uci_context *ctx, uci_package *p)
{
    struct stat info;
    if (stat(ctx->savedir, &info) != 0)
        (void)mkdir(ctx->savedir, mode_of(ctx->confdir, UCI_DIRMODE));
    else if (!S_ISDIR(info.st_mode))
        return result(ctx, UCI_ERR_IO);
    const stream_handle file =
        open_locked(delta_file(ctx->savedir, p).c_str(), O_WRONLY | O_APPEND | O_CREAT, true,
                    mode_of(p->path, UCI_FILEMODE));
    if (!file)
        return result(ctx, UCI_ERR_IO);
    const int err = append_deltas(p, file.get());
    if (!err)
        delta_free_all(&p->delta);
    return result(ctx, err);
}

int uci_save(uci_context *ctx, uci_package *p)
{
    if (!p->has_delta)
        return write_config(ctx, p);
    if (uci_list_empty(&p->delta))
        return result(ctx, UCI_OK);
    return save_to_delta_file(ctx, p);
}

// ---- reverting

static bool matches(const uci_ptr &line, const uci_ptr &wanted)
{
    const auto same = [](const char *text, const char *want) {
        return !want || (text && !strcmp(text, want));
    };
    return same(line.section, wanted.section) && same(line.option, wanted.option);
}

/// The file's text without the lines that change what `wanted` names.
static std::string without_matches(uci_package *p, FILE *stream, const uci_ptr &wanted)
{
    std::string kept;
    uci_parse_context parser{};
    parser_start(parser, stream);
    while (wanted.section && next_line(parser)) {
        delta_line line{};
        if (!parse_line(parser, p, line) || !matches(line.ptr, wanted))
            kept += parser.buffer;
    }
    return kept;
}

/// In place: the text only gets shorter, so there is always room for it.
static int revert_in_file(uci_package *p, const uci_ptr &wanted)
{
    const stream_handle file = open_locked(delta_file(p->ctx->savedir, p).c_str(), O_RDWR, true);
    if (!file)
        return errno == ENOENT ? UCI_OK : UCI_ERR_IO;
    const std::string kept = without_matches(p, file.get(), wanted);
    const int fd = fileno(file.get());
    const ssize_t length = static_cast<ssize_t>(kept.size());
    if (pwrite(fd, kept.data(), kept.size(), 0) != length || ftruncate(fd, length) != 0)
        return UCI_ERR_IO;
    return UCI_OK;
}

int uci_revert(uci_context *ctx, uci_ptr *ptr)
{
    int err = UCI_OK;
    if (!(ptr->flags & uci_ptr::UCI_LOOKUP_DONE))
        err = uci_lookup_ptr(ctx, ptr, nullptr, true);
    if (err || !ptr->p->has_delta)
        return err ? err : result(ctx, UCI_ERR_INVAL);
    if ((err = uci_save(ctx, ptr->p)) || (err = revert_in_file(ptr->p, *ptr)))
        return result(ctx, err);
    const std::string name = ptr->p->e.name;
    uci_unload(ctx, ptr->p);
    ptr->p = nullptr;
    ptr->s = nullptr;
    ptr->o = nullptr;
    return uci_load(ctx, name.c_str(), &ptr->p);
}
