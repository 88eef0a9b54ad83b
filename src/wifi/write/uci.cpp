// Single options, by name.
#include "platform/zu/ng_uci.h"
#include "wifi/write/write_internal.h"

static void act(ng_uci_action action, const std::string &name, const char *value)
{
    (void)ng_uci_save_action_ctx(ng_uci_change_context(), action, value, "%s", name.c_str());
}

void uci_put(const std::string &name, const char *value)
{
    act(uci_set_string, name, value);
}

void uci_put(const std::string &name, int value)
{
    act(uci_set_string, name, std::to_string(value).c_str());
}

void uci_clear(const std::string &name)
{
    act(ng_uci_delete_option, name, nullptr);
}

void uci_add(const std::string &list, const std::string &value)
{
    act(ng_uci_add_list, list, value.c_str());
}

void uci_remove(const std::string &list, const std::string &value)
{
    act(ng_uci_del_list, list, value.c_str());
}

void uci_put_list(const std::string &name, const std::vector<std::string> &items)
{
    (void)ng_uci_set_list(items, name.c_str());
}

std::vector<std::string> uci_items(const std::string &name)
{
    std::vector<std::string> items;
    const auto take = [](const char *value, void *priv) {
        static_cast<std::vector<std::string> *>(priv)->emplace_back(value);
    };
    (void)_ng_uci_get_val_cb(name.c_str(), take, &items);
    return items;
}

std::string numbered(const char *prefix, int number, const char *suffix)
{
    return prefix + std::to_string(number) + suffix;
}

std::string wifi_ap_section(int radio, int ssid)
{
    return numbered("wireless.ap", radio, "_") + std::to_string(ssid);
}
