// hostapd's instances: one object hostapd.apR_S for each access point that the committed wireless
// configuration enables; "hostapd" takes "reload" and follows the configuration. A link of type
// dummy stands for each access point's interface and for each enabled mesh interface.
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <set>

#include "peer.h"

static const blobmsg_policy NEIGHBOR_ARGUMENTS[] = {{.name = "list", .type = BLOBMSG_TYPE_ARRAY}};
static const blobmsg_policy BRIDGE_ARGUMENTS[] = {{.name = "bridge", .type = BLOBMSG_TYPE_STRING}};
static const peer_method INSTANCE_METHODS[] = {
    {"rrm_nr_set", NEIGHBOR_ARGUMENTS},
    {"update_ft_auth_bridge", BRIDGE_ARGUMENTS},
    {"get_status", {}},
};
static const peer_method DAEMON_METHODS[] = {{"reload", {}}};

static std::map<std::string, peer_object *> instances;

static int instance_call(const peer_object &object, const std::string &method, blob_attr *msg,
                         blob_buf *reply)
{
    if (method == "get_status") {
        blobmsg_add_string(reply, "status", "ENABLED");
        return UBUS_STATUS_OK;
    }
    peer_journal(object.path + " " + method + " " + peer_json(msg));
    const blobmsg_policy &expected =
        method == "rrm_nr_set" ? NEIGHBOR_ARGUMENTS[0] : BRIDGE_ARGUMENTS[0];
    blob_attr *argument = nullptr;
    blobmsg_parse(&expected, 1, &argument, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    return argument ? UBUS_STATUS_OK : UBUS_STATUS_INVALID_ARGUMENT;
}

/// Names of the interfaces of that mode ("ap", "mesh") that are to be on the air.
static std::set<std::string> enabled_interfaces(const std::string &mode)
{
    auto sections = peer_uci_sections("wireless");
    std::set<std::string> radios, names;
    for (auto &section : sections)
        if (peer_option(section, "type") != "" && peer_option(section, "enable") == "1")
            radios.insert(section.name);
    for (auto &section : sections)
        if (section.name.starts_with(mode) && peer_option(section, "enable") == "1" &&
            radios.contains(peer_option(section, "device")))
            names.insert(section.name);
    return names;
}

/// The links that stand for interfaces, also those that an earlier life of this program made.
static std::set<std::string> links_of_ours()
{
    std::set<std::string> names;
    FILE *listed = popen("ip -o link show type bridge", "r");
    char line[512], name[32];
    while (listed && fgets(line, sizeof line, listed))
        if (sscanf(line, "%*d: %31[a-z0-9_]:", name) == 1 &&
            (strncmp(name, "ap", 2) == 0 || strncmp(name, "mesh", 4) == 0))
            names.insert(name);
    if (listed)
        pclose(listed);
    return names;
}

/// "ap1_3" has the address 02:1a:c0:00:01:03. An interface that is there already, as the scenarios'
/// mesh is, stays what it is.
static void follow_links(std::set<std::string> wanted)
{
    const std::set<std::string> present = links_of_ours();
    std::string changes;
    for (const std::string &name : present)
        if (!wanted.contains(name))
            changes += "link del " + name + "\n";
    for (const std::string &name : wanted) {
        if (!present.contains(name) && if_nametoindex(name.c_str()) != 0)
            continue;
        int radio = 0, ssid = 0;
        sscanf(name.c_str(), "%*[a-z]%d_%d", &radio, &ssid);
        char address[32];
        snprintf(address, sizeof address, "02:1a:c0:00:%02x:%02x", radio & 0xff, ssid & 0xff);
        if (!present.contains(name))
            changes += "link add " + name + " address " + address + " type bridge\n";
        changes += "link set " + name + " up\n";
    }
    if (!changes.empty())
        peer_shell("ip -batch - <<'END'\n" + changes + "END\n");
}

static void follow_configuration()
{
    std::set<std::string> wanted = enabled_interfaces("ap"), links = enabled_interfaces("mesh");
    links.insert(wanted.begin(), wanted.end());
    follow_links(std::move(links));
    for (auto instance = instances.begin(); instance != instances.end();) {
        if (wanted.contains(instance->first)) {
            ++instance;
            continue;
        }
        peer_withdraw(instance->second);
        instance = instances.erase(instance);
    }
    for (auto &name : wanted)
        if (!instances.contains(name))
            instances[name] = peer_publish("hostapd." + name, INSTANCE_METHODS, instance_call);
}

static int daemon_call(const peer_object &, const std::string &, blob_attr *, blob_buf *)
{
    follow_configuration();
    return UBUS_STATUS_OK;
}

static void start()
{
    peer_publish("hostapd", DAEMON_METHODS, daemon_call);
    follow_configuration();
}

int main()
{
    return peer_run("sim_hostapd", start);
}
