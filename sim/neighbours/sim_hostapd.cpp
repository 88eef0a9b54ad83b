// hostapd's instances: one object hostapd.apR_S for each access point that the committed wireless
// configuration enables; "hostapd" takes "reload" and follows the configuration.
#include "peer.h"

#include <set>

namespace {

const blobmsg_policy NEIGHBOR_ARGUMENTS[] = {{.name = "list", .type = BLOBMSG_TYPE_ARRAY}};
const blobmsg_policy BRIDGE_ARGUMENTS[] = {{.name = "bridge", .type = BLOBMSG_TYPE_STRING}};
const peer_method INSTANCE_METHODS[] = {
    {"rrm_nr_set", NEIGHBOR_ARGUMENTS},
    {"update_ft_auth_bridge", BRIDGE_ARGUMENTS},
    {"get_status", {}},
};
const peer_method DAEMON_METHODS[] = {{"reload", {}}};

std::map<std::string, peer_object *> instances;

int instance_call(const peer_object &object, const std::string &method, blob_attr *msg,
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

std::set<std::string> enabled_access_points()
{
    auto sections = peer_uci_sections("wireless");
    std::set<std::string> radios, names;
    for (auto &section : sections)
        if (peer_option(section, "type") != "" && peer_option(section, "enable") == "1")
            radios.insert(section.name);
    for (auto &section : sections)
        if (section.name.starts_with("ap") && peer_option(section, "enable") == "1" &&
            radios.contains(peer_option(section, "device")))
            names.insert(section.name);
    return names;
}

void follow_configuration()
{
    std::set<std::string> wanted = enabled_access_points();
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

int daemon_call(const peer_object &, const std::string &, blob_attr *, blob_buf *)
{
    follow_configuration();
    return UBUS_STATUS_OK;
}

void start()
{
    peer_publish("hostapd", DAEMON_METHODS, daemon_call);
    follow_configuration();
}

} // namespace

int main()
{
    return peer_run("sim_hostapd", start);
}
