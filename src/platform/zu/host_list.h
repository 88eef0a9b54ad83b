// Lists of hosts (URLs) kept in UCI.
#pragma once

#include <libubox/list.h>

/// Most entries a list takes; the ones past it are refused with a WARNING naming the URL.
constexpr int HOST_LIST_MAX = 32;

/// One entry; owns its text.
struct tarn_host {
    list_head list;
    char *url;
};

/// Appends to `head` the items of list option `option`, whichever section of `package` holds it.
/// Non-zero on success; 0 when no section holds it or memory runs out.
int get_tarn_host_list_uci(const char *package, const char *option, list_head *head);
/// Frees every entry; `head` is an empty list afterwards.
void destroy_tarn_host_list(list_head *head);
