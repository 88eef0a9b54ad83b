// netifd, as far as the node's uplinks go: objects network.interface.NAME for every NAME with a
// lease file in /var/sim/lease ("ADDRESS/LENGTH GATEWAY", what a DHCP server would hand out).
// An interface is up while it is wanted up, has a lease, and its bridge has a carrier; its address
// and routes are put into the kernel then and taken out after. Every change is notified. What it
// says has the members of the real one, in its order.
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <set>
#include <sys/socket.h>
#include <unistd.h>

#include "peer.h"

constexpr const char *LEASES = "/var/sim/lease";
constexpr const char *PATH_PREFIX = "network.interface.";
constexpr const char *DNS_SERVER = "203.0.113.53";
constexpr int LEASE_S = 120;
// Priorities of the rules that lead to an interface's own table. The last comes after the main one.
constexpr int FROM_RULE = 10000;
constexpr int TO_RULE = 20000;
constexpr int OWN_RULE = 90000;

struct lease {
    std::string address, gateway; // address without its length
    int length = 0;
    bool operator==(const lease &) const = default;
};

struct interface {
    std::string device, proto = "dhcp";
    std::string table; // "": the main one
    int metric = 0;
    bool wanted = true, up = false;
    time_t up_since = 0;
    lease held;
    peer_object *object = nullptr;
};

static std::map<std::string, interface> interfaces;

static const blobmsg_policy NAME_ARGUMENTS[] = {{.name = "interface", .type = BLOBMSG_TYPE_STRING}};
static const peer_method INTERFACE_METHODS[] = {{"status", {}}, {"up", {}}, {"down", {}}};
static const peer_method MANAGER_METHODS[] = {{"up", NAME_ARGUMENTS}, {"down", NAME_ARGUMENTS}};
static const peer_method NETWORK_METHODS[] = {{"reload", {}}};

static lease read_lease(const std::string &name)
{
    lease found;
    std::string address;
    std::ifstream file(std::string(LEASES) + "/" + name);
    if (!(file >> address >> found.gateway))
        return {};
    size_t slash = address.find('/');
    found.address = address.substr(0, slash);
    found.length = slash == std::string::npos ? 32 : atoi(address.c_str() + slash + 1);
    return found;
}

static bool has_carrier(const std::string &device)
{
    int carrier = 0;
    std::ifstream("/sys/class/net/" + device + "/carrier") >> carrier;
    return carrier == 1;
}

static std::string network_address(const lease &held)
{
    in_addr address = {};
    inet_pton(AF_INET, held.address.c_str(), &address);
    uint32_t mask = held.length ? htonl(~0U << (32 - held.length)) : 0;
    address.s_addr &= mask;
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}

static void add_empty(blob_buf *reply, std::initializer_list<const char *> arrays)
{
    for (const char *name : arrays)
        blobmsg_close_array(reply, blobmsg_open_array(reply, name));
}

static void add_texts(blob_buf *reply, const char *name, std::initializer_list<const char *> texts)
{
    void *array = blobmsg_open_array(reply, name);
    for (const char *text : texts)
        blobmsg_add_string(reply, nullptr, text);
    blobmsg_close_array(reply, array);
}

static void add_address(blob_buf *reply, const lease &held)
{
    void *array = blobmsg_open_array(reply, "ipv4-address");
    void *table = blobmsg_open_table(reply, nullptr);
    blobmsg_add_string(reply, "address", held.address.c_str());
    blobmsg_add_u32(reply, "mask", static_cast<uint32_t>(held.length));
    blobmsg_close_table(reply, table);
    blobmsg_close_array(reply, array);
}

/// The default route alone; link routes are not listed.
static void add_route(blob_buf *reply, const interface &iface)
{
    const bool is_static = iface.proto == "static";
    void *array = blobmsg_open_array(reply, "route");
    void *table = blobmsg_open_table(reply, nullptr);
    blobmsg_add_string(reply, "target", "0.0.0.0");
    blobmsg_add_u32(reply, "mask", 0);
    blobmsg_add_string(reply, "nexthop", iface.held.gateway.c_str());
    blobmsg_add_string(reply, "source",
                       is_static ? "0.0.0.0/0" : (iface.held.address + "/32").c_str());
    blobmsg_close_table(reply, table);
    blobmsg_close_array(reply, array);
}

static void add_facts_when_up(const interface &iface, blob_buf *reply)
{
    add_texts(reply, "updated", {"addresses", "routes", "data"});
    blobmsg_add_u32(reply, "metric", static_cast<uint32_t>(iface.metric));
    blobmsg_add_u32(reply, "dns_metric", 0);
    blobmsg_add_u8(reply, "delegation", true);
    add_address(reply, iface.held);
    add_empty(reply, {"ipv6-address", "ipv6-prefix", "ipv6-prefix-assignment"});
    add_route(reply, iface);
    add_texts(reply, "dns-server", {DNS_SERVER});
    add_empty(reply, {"dns-search", "neighbors"});
    void *table = blobmsg_open_table(reply, "inactive");
    add_empty(reply,
              {"ipv4-address", "ipv6-address", "route", "dns-server", "dns-search", "neighbors"});
    blobmsg_close_table(reply, table);
}

static void add_no_device(blob_buf *reply)
{
    void *array = blobmsg_open_array(reply, "errors");
    void *table = blobmsg_open_table(reply, nullptr);
    blobmsg_add_string(reply, "subsystem", "interface");
    blobmsg_add_string(reply, "code", "NO_DEVICE");
    blobmsg_close_table(reply, table);
    blobmsg_close_array(reply, array);
}

static void add_data(const interface &iface, blob_buf *reply)
{
    void *table = blobmsg_open_table(reply, "data");
    if (iface.proto == "dhcp" && iface.up_since != 0)
        blobmsg_add_u32(reply, "leasetime", LEASE_S);
    blobmsg_close_table(reply, table);
}

static void add_status(const interface &iface, blob_buf *reply)
{
    const bool available = if_nametoindex(iface.device.c_str()) != 0;
    blobmsg_add_u8(reply, "up", iface.up);
    blobmsg_add_u8(reply, "pending", iface.wanted && !iface.up && has_carrier(iface.device));
    blobmsg_add_u8(reply, "available", available);
    blobmsg_add_u8(reply, "autostart", iface.wanted);
    blobmsg_add_u8(reply, "dynamic", false);
    if (iface.up) {
        blobmsg_add_u32(reply, "uptime", static_cast<uint32_t>(time(nullptr) - iface.up_since));
        blobmsg_add_string(reply, "l3_device", iface.device.c_str());
    }
    blobmsg_add_string(reply, "proto", iface.proto.c_str());
    if (available)
        blobmsg_add_string(reply, "device", iface.device.c_str());
    if (iface.up)
        add_facts_when_up(iface, reply);
    add_data(iface, reply);
    if (!available)
        add_no_device(reply);
}

/// netifd's event on the bus and the notification to the interface's subscribers.
static void announce(const std::string &name, const interface &iface)
{
    blob_buf msg = {};
    blob_buf_init(&msg, 0);
    blobmsg_add_string(&msg, "action", iface.up ? "ifup" : "ifdown");
    blobmsg_add_string(&msg, "interface", name.c_str());
    ubus_send_event(peer_bus(), "network.interface", msg.head);
    blob_buf_init(&msg, 0);
    blobmsg_add_string(&msg, "interface", name.c_str());
    add_status(iface, &msg);
    peer_notify(iface.object, iface.up ? "interface.update" : "interface.down", msg.head);
    blob_buf_free(&msg);
}

/// What has an own table is found by rules: by its addresses at once, and by the node's own traffic
/// where the main table knows no way.
static std::vector<std::string> rules_of(const interface &iface)
{
    if (iface.table.empty())
        return {};
    const std::string lookup = " lookup " + iface.table + " priority ";
    const std::string address = iface.held.address;
    const unsigned index = if_nametoindex(iface.device.c_str());
    return {"from " + address + lookup + std::to_string(FROM_RULE),
            "to " + address + "/" + std::to_string(iface.held.length) + lookup +
                std::to_string(TO_RULE),
            "iif lo" + lookup + std::to_string(OWN_RULE + index)};
}

static void configure_kernel(const interface &iface)
{
    const std::string dev = " dev " + iface.device;
    const std::string table = iface.table.empty() ? "" : " table " + iface.table;
    const std::string prefix = "/" + std::to_string(iface.held.length);
    std::string command = "ip address replace " + iface.held.address + prefix + dev +
                          " && ip route replace " + network_address(iface.held) + prefix + dev +
                          table + " && ip route replace default via " + iface.held.gateway + dev +
                          " metric " + std::to_string(iface.metric) + table;
    for (const std::string &rule : rules_of(iface)) // one may stand there from an earlier life
        command += "; ip rule del " + rule + " 2>/dev/null; ip rule add " + rule;
    peer_shell(command);
}

static void clear_kernel(const interface &iface)
{
    const std::string dev = " dev " + iface.device;
    std::string command = "ip route flush" + dev + "; ip -4 address flush" + dev;
    if (!iface.table.empty())
        command += "; ip route flush table " + iface.table + dev;
    for (const std::string &rule : rules_of(iface))
        command += "; ip rule del " + rule;
    peer_shell(command);
}

static void follow(const std::string &name, interface &iface)
{
    lease wanted = iface.wanted && has_carrier(iface.device) ? read_lease(name) : lease();
    if (wanted == iface.held)
        return;
    if (iface.up)
        clear_kernel(iface);
    iface.held = wanted;
    iface.up = !wanted.address.empty();
    if (iface.up) {
        iface.up_since = time(nullptr);
        configure_kernel(iface);
    }
    peer_journal(name + (iface.up ? " up " + iface.held.address : " down"));
    announce(name, iface);
}

static void follow_all()
{
    for (auto &[name, iface] : interfaces)
        follow(name, iface);
}

static void set_wanted(const std::string &name, interface &iface, bool wanted)
{
    peer_journal(name + (wanted ? " asked up" : " asked down"));
    const bool loses = iface.up && !wanted;
    iface.wanted = wanted;
    peer_shell("ip link set " + iface.device + (wanted ? " up" : " down") + " 2>/dev/null || :");
    follow(name, iface);
    if (loses) // said twice by the real one
        announce(name, iface);
}

static int interface_call(const peer_object &object, const std::string &method, blob_attr *,
                          blob_buf *reply)
{
    std::string name = object.path.substr(strlen(PATH_PREFIX));
    interface &iface = interfaces[name];
    if (method == "status")
        add_status(iface, reply);
    else
        set_wanted(name, iface, method == "up");
    return UBUS_STATUS_OK;
}

static int manager_call(const peer_object &, const std::string &method, blob_attr *msg, blob_buf *)
{
    auto found = interfaces.find(peer_string(msg, "interface"));
    if (found == interfaces.end())
        return UBUS_STATUS_NOT_FOUND;
    set_wanted(found->first, found->second, method == "up");
    return UBUS_STATUS_OK;
}

static std::set<std::string> leased_names()
{
    std::set<std::string> names;
    std::error_code ignored;
    for (auto &entry : std::filesystem::directory_iterator(LEASES, ignored))
        names.insert(entry.path().filename().string());
    return names;
}

static void add_interface(const std::string &name, const std::vector<peer_section> &configuration)
{
    interface &iface = interfaces[name];
    iface.device = name.starts_with("orph_conn") ? name : "br-" + name;
    for (auto &section : configuration) {
        if (section.name != name)
            continue;
        if (std::string device = peer_option(section, "device"); !device.empty())
            iface.device = device;
        if (std::string proto = peer_option(section, "proto"); !proto.empty())
            iface.proto = proto;
        iface.table = peer_option(section, "ip4table");
        iface.metric = atoi(peer_option(section, "metric").c_str());
    }
    iface.object = peer_publish(PATH_PREFIX + name, INTERFACE_METHODS, interface_call);
}

static void follow_configuration()
{
    auto configuration = peer_uci_sections("network");
    std::set<std::string> names = leased_names();
    for (auto iface = interfaces.begin(); iface != interfaces.end();) {
        if (names.contains(iface->first)) {
            ++iface;
            continue;
        }
        if (iface->second.up)
            clear_kernel(iface->second);
        peer_withdraw(iface->second.object);
        iface = interfaces.erase(iface);
    }
    for (auto &name : names)
        if (!interfaces.contains(name))
            add_interface(name, configuration);
    follow_all();
}

static int network_call(const peer_object &, const std::string &, blob_attr *, blob_buf *)
{
    follow_configuration();
    return UBUS_STATUS_OK;
}

static void link_changed(uloop_fd *fd, unsigned)
{
    char buffer[16384];
    while (recv(fd->fd, buffer, sizeof(buffer), MSG_DONTWAIT) > 0)
        ;
    follow_all();
}

static void watch_links()
{
    static uloop_fd links;
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    links.fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    links.cb = link_changed;
    if (bind(links.fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
        perror("sim_netifd: cannot watch the links");
    uloop_fd_add(&links, ULOOP_READ);
}

static void start()
{
    peer_publish("network", NETWORK_METHODS, network_call);
    peer_publish("network.interface", MANAGER_METHODS, manager_call);
    watch_links();
    follow_configuration();
}

int main()
{
    return peer_run("sim_netifd", start);
}
