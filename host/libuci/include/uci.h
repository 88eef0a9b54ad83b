/*
 * libuci: configuration packages (files) of sections, options and lists.
 *
 * A context holds the packages it has loaded. Changes live in memory until uci_save() appends them
 * to the package's delta file; uci_commit() merges the delta files into the configuration file.
 * Functions return UCI_OK or one of the UCI_ERR_ codes, and leave it in the context.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "uci_config.h"

#define UCI_CONFDIR "/etc/config"
#define UCI_SAVEDIR "/tmp/.uci"
#define UCI_CONF2DIR "/var/run/uci"
#define UCI_DIRMODE 0700
#define UCI_FILEMODE 0600

#ifndef container_of
#define container_of(ptr, type, member) ((type *)((char *)(ptr)-offsetof(type, member)))
#endif

#ifdef __cplusplus
extern "C" {
#endif

enum {
    UCI_OK = 0,
    UCI_ERR_MEM,
    UCI_ERR_INVAL,
    UCI_ERR_NOTFOUND,
    UCI_ERR_IO,
    UCI_ERR_PARSE,
    UCI_ERR_DUPLICATE,
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7,
    UCI_TYPE_HOOK = 8
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

enum uci_flags {
    UCI_FLAG_STRICT = 1,      /* a file with a bad line does not load at all */
    UCI_FLAG_PERROR = 2,      /* report each bad line on stderr */
    UCI_FLAG_EXPORT_NAME = 4, /* write generated section names too */
    UCI_FLAG_SAVED_DELTA = 8  /* keep the delta lines that were read in package->saved_delta */
};

enum uci_command {
    UCI_CMD_ADD = 0,
    UCI_CMD_REMOVE = 1,
    UCI_CMD_CHANGE = 2,
    UCI_CMD_RENAME = 3,
    UCI_CMD_REORDER = 4,
    UCI_CMD_LIST_ADD = 5,
    UCI_CMD_LIST_DEL = 6
};

struct uci_context;
struct uci_backend;
struct uci_parse_context;

struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

/* What all members of lists begin with. */
struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name;
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    bool has_delta; /* false for a package named by a file path: it is saved straight to the file */
    bool uses_conf2; /* loaded from the override directory */
    char *path;

    /* private: */
    struct uci_backend *backend;
    void *priv;
    int n_section;
    struct uci_list delta;
    struct uci_list saved_delta;
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package *package;
    bool anonymous;
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list list; /* of plain elements; the value is the name */
        char *string;
    } v;
};

struct uci_delta {
    struct uci_element e; /* name: the option's, or NULL */
    enum uci_command cmd;
    char *section;
    char *value;
};

struct uci_ptr {
    enum uci_type target;
    enum { UCI_LOOKUP_DONE = 1, UCI_LOOKUP_COMPLETE = 2, UCI_LOOKUP_EXTENDED = 4 } flags;

    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last;

    const char *package;
    const char *section;
    const char *option;
    const char *value;
};

struct uci_context {
    struct uci_list root; /* loaded packages */
    struct uci_parse_context *pctx;
    struct uci_backend *backend;
    struct uci_list backends;
    enum uci_flags flags;
    char *confdir;
    char *savedir;
    char *conf2dir;
    struct uci_list delta_path; /* of UCI_TYPE_PATH elements, the save directory last */

    /* private: */
    int err;
    const char *func;
};

/* A fresh context with the default directories, or NULL. */
struct uci_context *uci_alloc_context(void);
/* Frees the context and its packages; what was not saved is lost. */
void uci_free_context(struct uci_context *ctx);

/* Prints the last error as "prefix: text" (prefix may be NULL) on stderr. */
void uci_perror(struct uci_context *ctx, const char *prefix);
/* The same into a malloc'ed *dest; with dest NULL it is printed. */
void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *prefix);

/* Reads packages from a stream. name NULL: the stream's own "package" lines name them; single: one
 * package only, its name taken from `name` when given. *package is the last one read. */
int uci_import(struct uci_context *ctx, FILE *stream, const char *name,
               struct uci_package **package, bool single);
/* Writes a package, or with NULL every loaded one, in file form. header: with its package line. */
int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header);

/* Loads "<confdir>/name" with its deltas. A name that begins with / or ./ is a file's path. */
int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);
int uci_unload(struct uci_context *ctx, struct uci_package *p);

/* Finds "package[.section[.option]][=value]", loading the package if needed. str is changed and
 * must outlive ptr; with str NULL the fields of ptr name what is looked up. */
int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);

int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
                    struct uci_section **res);
int uci_set(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_reorder_section(struct uci_context *ctx, struct uci_section *s, int pos);
int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr);
/* Drops saved and unsaved changes of what ptr names; ptr->p is the package as loaded anew. */
int uci_revert(struct uci_context *ctx, struct uci_ptr *ptr);

/* Appends the changes to the delta file. */
int uci_save(struct uci_context *ctx, struct uci_package *p);
/* Saves, reads the package and all its deltas anew, and writes the configuration file. *p is
 * replaced: no section or option pointer stays valid. */
int uci_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite);

/* Names of all packages as one block with a NULL at its end, to be freed by one free(). */
int uci_list_configs(struct uci_context *ctx, char ***list);

int uci_set_savedir(struct uci_context *ctx, const char *dir);
int uci_set_confdir(struct uci_context *ctx, const char *dir);
int uci_set_conf2dir(struct uci_context *ctx, const char *dir);
int uci_add_delta_path(struct uci_context *ctx, const char *dir);

/* Reads the next word of a line. *str holds the line's rest (NULL: read a line from the stream);
 * *result is malloc'ed, empty when the line has ended. */
int uci_parse_argument(struct uci_context *ctx, FILE *stream, char **str, char **result);

/* False when the text holds a control character other than TAB, LF and CR. */
bool uci_validate_text(const char *str);
/* Takes a tuple apart into ptr without looking it up. */
int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str);
int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list,
                    const char *name);

static inline bool uci_list_empty(struct uci_list *list)
{
    return list->next == list;
}

#define list_to_element(ptr) container_of(ptr, struct uci_element, list)

#define uci_foreach_element(_list, _ptr)                                                           \
    for (_ptr = list_to_element((_list)->next); &(_ptr)->list != (_list);                          \
         _ptr = list_to_element((_ptr)->list.next))

/* The current element may be deleted inside the loop. */
#define uci_foreach_element_safe(_list, _tmp, _ptr)                                                \
    for (_ptr = list_to_element((_list)->next), _tmp = list_to_element((_ptr)->list.next);         \
         &(_ptr)->list != (_list); _ptr = _tmp, _tmp = list_to_element((_ptr)->list.next))

static inline struct uci_package *uci_to_package(struct uci_element *e)
{
    return container_of(e, struct uci_package, e);
}

static inline struct uci_section *uci_to_section(struct uci_element *e)
{
    return container_of(e, struct uci_section, e);
}

static inline struct uci_option *uci_to_option(struct uci_element *e)
{
    return container_of(e, struct uci_option, e);
}

static inline struct uci_delta *uci_to_delta(struct uci_element *e)
{
    return container_of(e, struct uci_delta, e);
}

static inline struct uci_package *uci_lookup_package(struct uci_context *ctx, const char *name)
{
    struct uci_element *e = NULL;
    return uci_lookup_next(ctx, &e, &ctx->root, name) == UCI_OK ? uci_to_package(e) : NULL;
}

static inline struct uci_section *uci_lookup_section(struct uci_context *ctx, struct uci_package *p,
                                                     const char *name)
{
    struct uci_element *e = NULL;
    return uci_lookup_next(ctx, &e, &p->sections, name) == UCI_OK ? uci_to_section(e) : NULL;
}

static inline struct uci_option *uci_lookup_option(struct uci_context *ctx, struct uci_section *s,
                                                   const char *name)
{
    struct uci_element *e = NULL;
    return uci_lookup_next(ctx, &e, &s->options, name) == UCI_OK ? uci_to_option(e) : NULL;
}

static inline const char *uci_lookup_option_string(struct uci_context *ctx, struct uci_section *s,
                                                   const char *name)
{
    struct uci_option *o = uci_lookup_option(ctx, s, name);
    return o && o->type == UCI_TYPE_STRING ? o->v.string : NULL;
}

#ifdef __cplusplus
}
#endif
