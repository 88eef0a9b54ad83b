// Host lists: the items of a list option as a linked list that outlives the UCI context.
#include "platform/zu/host_list.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/uci/uci_internal.h"

/// Takes the entry out of its list and frees it.
static void destroy_host(tarn_host *host)
{
    list_del(&host->list);
    free(host->url);
    delete host;
}

void destroy_tarn_host_list(list_head *head)
{
    while (!list_empty(head))
        destroy_host(list_entry(head->next, tarn_host, list));
}

static bool append_host(list_head *head, const char *url)
{
    tarn_host *host = new (std::nothrow) tarn_host{};
    if (!host)
        return false;
    host->url = strdup(url);
    if (!host->url) {
        delete host;
        return false;
    }
    list_add_tail(&host->list, head);
    return true;
}

/// The option in the first section of the package that has it.
static uci_option *find_option(const char *package, const char *option)
{
    uci_context *ctx = ng_uci_change_context();
    if (!ctx)
        return nullptr;
    uci_package *loaded = uci_lookup_package(ctx, package);
    if (!loaded) {
        const ng_uci_read_locks locks(ctx, package);
        if (!locks || uci_load(ctx, package, &loaded) != UCI_OK)
            return nullptr;
    }
    uci_element *e;
    uci_foreach_element(&loaded->sections, e)
    {
        if (uci_option *found = uci_lookup_option(ctx, uci_to_section(e), option))
            return found;
    }
    return nullptr;
}

int get_tarn_host_list_uci(const char *package, const char *option, list_head *head)
{
    uci_option *found = find_option(package, option);
    if (!found)
        return 0;
    list_head fresh;
    INIT_LIST_HEAD(&fresh);
    bool complete = true;
    if (found->type == UCI_TYPE_STRING)
        complete = append_host(&fresh, found->v.string);
    int count = 0;
    uci_element *e;
    if (found->type == UCI_TYPE_LIST)
        uci_foreach_element(&found->v.list, e)
        {
            if (++count > HOST_LIST_MAX)
                log_warning("More than %d entries in %s, ignoring %s", HOST_LIST_MAX, option,
                            e->name);
            else
                complete = complete && append_host(&fresh, e->name);
        }
    if (!complete) {
        destroy_tarn_host_list(&fresh);
        return 0;
    }
    list_splice_tail(&fresh, head);
    return 1;
}
