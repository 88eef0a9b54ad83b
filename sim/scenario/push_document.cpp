// The numbered settings documents; see push_markers.h.
#include "push_markers.h"

int push_channel(int number)
{
    return 1 + number % 11;
}

bool push_is_bridged(int number)
{
    return number % 5 == 0;
}

bool push_has_vlan(int number)
{
    return number % 2 == 0;
}

static std::string document(int number, bool delayed, const std::string &lan_block)
{
    const std::string n = std::to_string(number);
    return "{\"delayed_settings\":" + std::string(delayed ? "true" : "false") +
           ",\"node_id\":" + n + ",\"scanning_period\":" + n + ",\"presence_period\":" + n +
           ",\"radios\":[{\"band\":\"2.4GHz\",\"channel\":" + std::to_string(push_channel(number)) +
           ",\"txpower\":" + n +
           "},{\"band\":\"5GHz\",\"channel\":" + (number % 3 == 0 ? "52" : "36") +
           ",\"mesh_enable\":true}],\"ssids\":[{\"index\":1,\"ssid\":\"Net " + n +
           "\"},{\"index\":2,\"enable\":" + (number % 2 == 0 ? "true" : "false") +
           ",\"bridge_to_lan\":" + (push_is_bridged(number) ? "true" : "false") +
           "},{\"index\":3,\"vlan_tag\":" + (push_has_vlan(number) ? "30" : "-1") +
           ",\"lan_block\":" + lan_block + ",\"dhcp\":{\"enable\":true,\"gateway_ip\":\"172.16." +
           n + ".1\",\"netmask\":\"255.255.255.0\",\"start\":10,\"num_leases\":" + n +
           ",\"lease_len\":\"9m\"}}]}";
}

std::string push_marked(int number, bool delayed)
{
    return document(number, delayed, "false");
}

std::string push_refusable(int number)
{
    return document(number, false, "false},{\"index\":5");
}
