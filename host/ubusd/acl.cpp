// Who may do what. The super-user and the user the broker runs as may do everything; what others
// may do stands in JSON files, each for one user or group, with lists of texts whose final "*"
// stands for any rest:
//
//   {"user" | "group": NAME, "access": {PATH: {"methods": [...]}}, "publish": [...], "subscribe":
//   [...], "listen": [...],
//    "send": [...]}
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <grp.h>
#include <libubox/blobmsg_json.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "broker.h"

using patterns = std::vector<std::string>;

struct access_rule {
    std::string path;
    patterns methods;
};

struct access_list {
    std::string user, group; // one of them is empty
    std::vector<access_rule> access;
    patterns allowed[BROKER_ACL_KINDS];
};

static std::string folder;
static std::vector<access_list> lists;

static bool matches(const std::string &pattern, const std::string &text)
{
    if (pattern.ends_with('*'))
        return text.starts_with(pattern.substr(0, pattern.size() - 1));
    return text == pattern;
}

static bool any_matches(const patterns &all, const std::string &text)
{
    return std::any_of(all.begin(), all.end(),
                       [&text](const std::string &pattern) { return matches(pattern, text); });
}

static bool concerns(const access_list &list, const broker_client *client)
{
    if (!list.user.empty())
        return list.user == client->user;
    return std::find(client->groups.begin(), client->groups.end(), list.group) !=
           client->groups.end();
}

static patterns read_patterns(blob_attr *array)
{
    patterns out;
    blob_attr *element;
    size_t rest;
    blobmsg_for_each_attr(element, array, rest)
    {
        if (blobmsg_type(element) == BLOBMSG_TYPE_STRING)
            out.emplace_back(blobmsg_get_string(element));
    }
    return out;
}

static std::vector<access_rule> read_access(blob_attr *table)
{
    static const blobmsg_policy POLICY = {"methods", BLOBMSG_TYPE_ARRAY};
    std::vector<access_rule> out;
    blob_attr *object;
    size_t rest;
    blobmsg_for_each_attr(object, table, rest)
    {
        blob_attr *methods = nullptr;
        if (blobmsg_type(object) == BLOBMSG_TYPE_TABLE)
            (void)blobmsg_parse(&POLICY, 1, &methods, blobmsg_data(object),
                                (unsigned)blobmsg_len(object));
        if (methods)
            out.push_back({blobmsg_name(object), read_patterns(methods)});
    }
    return out;
}

static void read_list(blob_attr *root)
{
    enum { USER, GROUP, ACCESS, FIRST_KIND, COUNT = FIRST_KIND + BROKER_ACL_KINDS };
    static const blobmsg_policy POLICY[COUNT] = {
        {"user", BLOBMSG_TYPE_STRING},     {"group", BLOBMSG_TYPE_STRING},
        {"access", BLOBMSG_TYPE_TABLE},    {"publish", BLOBMSG_TYPE_ARRAY},
        {"subscribe", BLOBMSG_TYPE_ARRAY}, {"listen", BLOBMSG_TYPE_ARRAY},
        {"send", BLOBMSG_TYPE_ARRAY},
    };
    blob_attr *tb[COUNT] = {};
    (void)blobmsg_parse(POLICY, COUNT, tb, blob_data(root), (unsigned)blob_len(root));
    if (!tb[USER] == !tb[GROUP])
        return;
    access_list list;
    (tb[USER] ? list.user : list.group) = blobmsg_get_string(tb[USER] ? tb[USER] : tb[GROUP]);
    if (tb[ACCESS])
        list.access = read_access(tb[ACCESS]);
    for (int kind = 0; kind < BROKER_ACL_KINDS; kind++) {
        if (tb[FIRST_KIND + kind])
            list.allowed[kind] = read_patterns(tb[FIRST_KIND + kind]);
    }
    lists.push_back(std::move(list));
}

/// A list that others than its owner could have written would let them give themselves anything.
static bool is_trustworthy(const struct stat &info)
{
    return S_ISREG(info.st_mode) && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0 &&
           (info.st_uid == 0 || info.st_uid == geteuid());
}

static void read_file(const std::string &path)
{
    struct stat info;
    wire_buf list;
    if (stat(path.c_str(), &info) != 0 || !is_trustworthy(info))
        fprintf(stderr, "ubusd: access list %s is no file of the super-user's alone, ignoring it\n",
                path.c_str());
    else if (!blobmsg_add_json_from_file(&list.b, path.c_str()))
        fprintf(stderr, "ubusd: access list %s does not parse, ignoring it\n", path.c_str());
    else
        read_list(list.msg());
}

void acl_load(const char *dir)
{
    if (dir)
        folder = dir;
    lists.clear();
    DIR *entries = opendir(folder.c_str());
    if (!entries)
        return; // then only the super-user may do anything
    while (const dirent *entry = readdir(entries)) {
        if (std::string(entry->d_name).ends_with(".json"))
            read_file(folder + "/" + entry->d_name);
    }
    closedir(entries);
}

bool acl_allows_method(const broker_client *client, const std::string &path, const char *method)
{
    if (client->trusted)
        return true;
    for (const access_list &list : lists) {
        for (const access_rule &rule : list.access) {
            if (concerns(list, client) && matches(rule.path, path) &&
                any_matches(rule.methods, method))
                return true;
        }
    }
    return false;
}

bool acl_allows(const broker_client *client, broker_acl_kind kind, const std::string &name)
{
    return client->trusted || std::any_of(lists.begin(), lists.end(), [&](const access_list &list) {
               return concerns(list, client) && any_matches(list.allowed[kind], name);
           });
}
