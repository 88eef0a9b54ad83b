// The context: its directories, its flags and the text of its last error.
#include <cstdlib>
#include <cstring>

#include "uci_internal.h"

using namespace libuci;

static const char *const ERROR_TEXTS[UCI_ERR_LAST] = {
    "Success",   "Out of memory", "Invalid argument", "Entry not found",
    "I/O error", "Parse error",   "Duplicate entry",  "Unknown error",
};

int libuci::result(uci_context *ctx, int code)
{
    ctx->err = code;
    ctx->pctx->reason = nullptr;
    return code;
}

uci_context *uci_alloc_context(void)
{
    uci_context *ctx = new uci_context{};
    list_init(&ctx->root);
    list_init(&ctx->backends);
    list_init(&ctx->delta_path);
    ctx->pctx = new uci_parse_context{};
    ctx->flags = static_cast<uci_flags>(UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA);
    set_text(ctx->confdir, UCI_CONFDIR);
    set_text(ctx->savedir, UCI_SAVEDIR);
    set_text(ctx->conf2dir, UCI_CONF2DIR);
    list_insert(ctx->delta_path.prev, &element_new(UCI_TYPE_PATH, UCI_SAVEDIR)->list);
    return ctx;
}

void uci_free_context(uci_context *ctx)
{
    uci_element *e, *tmp;
    uci_foreach_element_safe(&ctx->root, tmp, e) package_free(uci_to_package(e));
    uci_foreach_element_safe(&ctx->delta_path, tmp, e) element_free(e);
    free(ctx->confdir);
    free(ctx->savedir);
    free(ctx->conf2dir);
    delete ctx->pctx;
    delete ctx;
}

int uci_set_confdir(uci_context *ctx, const char *dir)
{
    if (!dir)
        return result(ctx, UCI_ERR_INVAL);
    set_text(ctx->confdir, dir);
    return result(ctx, UCI_OK);
}

int uci_set_conf2dir(uci_context *ctx, const char *dir)
{
    set_text(ctx->conf2dir, dir);
    return result(ctx, UCI_OK);
}

static uci_element *delta_path_find(uci_context *ctx, const char *dir)
{
    uci_element *e = nullptr;
    return uci_lookup_next(ctx, &e, &ctx->delta_path, dir) == UCI_OK ? e : nullptr;
}

int uci_set_savedir(uci_context *ctx, const char *dir)
{
    if (!dir)
        return result(ctx, UCI_ERR_INVAL);
    set_text(ctx->savedir, dir);
    uci_element *e = delta_path_find(ctx, dir);
    if (e)
        list_remove(&e->list);
    else
        e = element_new(UCI_TYPE_PATH, dir);
    list_insert(ctx->delta_path.prev, &e->list);
    return result(ctx, UCI_OK);
}

int uci_add_delta_path(uci_context *ctx, const char *dir)
{
    if (!dir)
        return result(ctx, UCI_ERR_INVAL);
    if (delta_path_find(ctx, dir))
        return result(ctx, UCI_ERR_DUPLICATE);
    list_insert(ctx->delta_path.prev->prev, &element_new(UCI_TYPE_PATH, dir)->list);
    return result(ctx, UCI_OK);
}

void uci_get_errorstr(uci_context *ctx, char **dest, const char *prefix)
{
    const uci_parse_context &parser = *ctx->pctx;
    const int code = ctx->err >= 0 && ctx->err < UCI_ERR_LAST ? ctx->err : UCI_ERR_UNKNOWN;
    std::string text = prefix ? std::string(prefix) + ": " : "";
    text += ERROR_TEXTS[code];
    if (code == UCI_ERR_PARSE && parser.reason)
        text += std::string(" (") + parser.reason + ") at line " +
                std::to_string(parser.error_line) + ", byte " + std::to_string(parser.error_byte);
    if (dest)
        *dest = strdup(text.c_str());
    else
        fprintf(stderr, "%s\n", text.c_str());
}

void uci_perror(uci_context *ctx, const char *prefix)
{
    uci_get_errorstr(ctx, nullptr, prefix);
}
