// netlink-probe: links, rules and the neighbours of the mesh.
#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "netlink/batman.h"
#include "netlink/rtnl.h"
#include "probe.h"

constexpr uint32_t MAX_QUERIES = 1000000;

static int status_of(int result)
{
    return result == 0 ? 0 : 1;
}

static int run_up(arguments args)
{
    return status_of(ng_rtnl_iface_set_up(args[0], true));
}

static int run_running(arguments args)
{
    return status_of(ng_rtnl_iface_link_set_up(args[0], true, true));
}

static int run_down(arguments args)
{
    return status_of(ng_rtnl_iface_set_up(args[0], false));
}

static int run_link(arguments args)
{
    const bool up = ng_rtnl_iface_link_get_up(args[0], true);
    const bool running = ng_rtnl_iface_link_get_up(args[0], false);
    printf("link %s up=%d running=%d\n", args[0], up, running);
    return running ? 0 : 1;
}

static int run_wait(arguments args)
{
    return ng_rtnl_iface_link_get_retry(args[0], false) ? 0 : 1;
}

static int run_index(arguments args)
{
    const uint32_t index = ng_rtnl_iface_index_get_retry(args[0]);
    printf("index %s %u\n", args[0], index);
    return index ? 0 : 1;
}

static int run_vlan(arguments args)
{
    auto vid = number_of(args[1], UINT16_MAX);
    return vid ? status_of(ng_rtnl_iface_create_vlan(args[0], (uint16_t)*vid)) : 1;
}

static int run_destroy(arguments args)
{
    return status_of(ng_rtnl_iface_destroy(args[0]));
}

static int run_enslave(arguments args)
{
    return status_of(ng_rtnl_bridge_enslave(args[0], args[1]));
}

static int run_release(arguments args)
{
    return status_of(ng_rtnl_bridge_release(args[0]));
}

/// "ADDRESS", or where `length` is asked for "ADDRESS[/LENGTH]", in host byte order. Without a
/// length that is left alone.
static bool address_read(const std::string &text, uint32_t *address, int *length)
{
    const size_t slash = text.find('/');
    in_addr parsed;
    if (inet_pton(AF_INET, text.substr(0, length ? slash : text.npos).c_str(), &parsed) != 1) {
        fprintf(stderr, "netlink-probe: '%s' is not an address\n", text.c_str());
        return false;
    }
    *address = ntohl(parsed.s_addr);
    if (!length || slash == std::string::npos)
        return true;
    auto number = number_of(text.c_str() + slash + 1, 32);
    if (number)
        *length = (int)*number;
    return number.has_value();
}

static int run_rule(arguments args)
{
    const bool add = strcmp(args[0], "add") == 0;
    const char *iif = strcmp(args[1], "any") == 0 ? nullptr : args[1];
    uint32_t src = 0, dst = 0;
    int dst_length = 32;
    auto table = number_of(args[4], INT32_MAX);
    auto priority = number_of(args[5], INT32_MAX);
    if ((!add && strcmp(args[0], "del") != 0) || !table || !priority ||
        !address_read(args[2], &src, nullptr) || !address_read(args[3], &dst, &dst_length))
        return 1;
    auto change = add ? ng_rtnl_iface_rule_add : ng_rtnl_iface_rule_del;
    return status_of(change(iif, src, dst, dst ? dst_length : 0, (int)*table, (int)*priority));
}

/// The neighbours of bat0 as a program that runs batctl and reads its lines would count them.
static uint32_t batctl_neighbors()
{
    FILE *lines = popen("batctl neighbors -n -H", "r");
    uint32_t count = 0;
    char line[256];
    while (lines && fgets(line, sizeof line, lines))
        count++;
    return lines && pclose(lines) == 0 ? count : 0;
}

struct measure {
    uint32_t neighbors;
    double us; ///< mean time of one query
};

static measure measure_queries(uint32_t (*query)(), uint32_t times)
{
    const auto began = std::chrono::steady_clock::now();
    uint32_t neighbors = 0;
    for (uint32_t i = 0; i < times; i++)
        neighbors = query();
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - began;
    return {neighbors, took.count() / times};
}

static int run_neighbors(arguments args)
{
    auto times = args.empty() ? 1 : number_of(args[0], MAX_QUERIES);
    if (!times || *times == 0)
        return 1;
    const measure netlink = measure_queries(bat_check_neighbors, *times);
    bat_nlsock_close();
    printf("neighbors %u us=%.1f\n", netlink.neighbors, netlink.us);
    return netlink.neighbors ? 0 : 1;
}

static int run_compare(arguments args)
{
    auto times = number_of(args[0], MAX_QUERIES);
    if (!times || *times == 0)
        return 1;
    const measure netlink = measure_queries(bat_check_neighbors, *times);
    bat_nlsock_close();
    const measure batctl = measure_queries(batctl_neighbors, *times);
    printf("netlink %u us=%.1f batctl %u us=%.1f ratio=%.4f\n", netlink.neighbors, netlink.us,
           batctl.neighbors, batctl.us, netlink.us / batctl.us);
    return netlink.neighbors == batctl.neighbors ? 0 : 1;
}

constexpr probe_command COMMANDS[] = {
    {"up", "NAME", "set a link up", run_up},
    {"running", "NAME", "set it up and running", run_running},
    {"down", "NAME", "set it down", run_down},
    {"link", "NAME", "whether it is up and has its carrier", run_link},
    {"wait", "NAME", "the same, asked for half a second", run_wait},
    {"index", "NAME", "its number, asked for two seconds", run_index},
    {"vlan", "PARENT VID", "create PARENT.VID", run_vlan},
    {"destroy", "NAME", "delete a link", run_destroy},
    {"enslave", "BRIDGE PORT", "make a link a port of a bridge", run_enslave},
    {"release", "PORT", "and of none", run_release},
    {"rule", "add|del IIF|any SRC DST/LEN TABLE PRIORITY",
     "change a policy rule; 0.0.0.0 is any address", run_rule},
    {"neighbors", "[TIMES]", "of bat0, and the mean time a query took", run_neighbors},
    {"compare", "TIMES", "the same by running batctl, and the ratio of the times", run_compare},
};
const std::span<const probe_command> LINK_COMMANDS = COMMANDS;
