// Two rules.
//
// A service reloads when a package that it is configured by changes: procd tells those that asked
// for it when reload_config finds the package different. Our own package is the daemon's, which has
// just written it.
//
// A radio is set up anew when what is written to it changes: an option of its wifi-device section,
// or of a wifi-iface section on it. One that is off and stays off is not written.
#include "push_effect.h"

#include <algorithm>
#include <map>
#include <set>

struct package_service {
    const char *package, *service;
};

constexpr package_service SERVICES[] = {
    {"wireless", "network"},    {"wireless", "hostapd"},    {"network", "network"},
    {"dhcp", "dnsmasq"},        {"firewall", "firewall"},   {"u80211d", "u80211d"},
    {"prequestd", "prequestd"}, {"igmpproxy", "igmpproxy"}, {"evlog", "evlog"},
    {"ap_mgr", "ap_mgr"},       {"udsplash", "udsplash"},   {"udshape", "udshape"},
    {"fw_core", "fw_core"},
};

static std::vector<std::string> services_of(const config_changes &changes, const char *also_reloads)
{
    std::set<std::string> services;
    for (const package_service &each : SERVICES)
        if (changes.contains(each.package))
            services.insert(each.service);
    if (also_reloads)
        services.insert(also_reloads);
    return {services.begin(), services.end()};
}

static const config_section *section_in(const config_record &record, const std::string &name)
{
    const config_package &wireless = record.at("wireless");
    const auto place = wireless.find(name);
    return place != wireless.end() ? &place->second : nullptr;
}

static std::string value_of(const config_section *section, const char *option,
                            const char *otherwise)
{
    if (!section || !section->options.contains(option))
        return otherwise;
    const std::vector<std::string> &items = section->options.at(option).items;
    return items.empty() ? otherwise : items.front();
}

static bool is_on(const config_section *section)
{
    return section && value_of(section, "enable", "1") != "0";
}

/// Names of the wireless sections that are on, before or after, and differ.
static std::set<std::string> changed_sections(const config_changes &changes,
                                              const config_record &before,
                                              const config_record &after)
{
    std::set<std::string> names;
    const auto wireless = changes.find("wireless");
    if (wireless == changes.end())
        return names;
    for (const config_change &change : wireless->second)
        if (is_on(section_in(before, change.section)) || is_on(section_in(after, change.section)))
            names.insert(change.section);
    return names;
}

static std::vector<radio_restart> radios_of(const config_changes &changes,
                                            const config_record &before, const config_record &after)
{
    std::map<std::string, radio_restart> radios;
    for (const std::string &name : changed_sections(changes, before, after)) {
        const config_section *then = section_in(before, name), *now = section_in(after, name);
        const config_section *section = now ? now : then;
        const bool is_radio = section->type == "wifi-device";
        const std::string radio = is_radio ? name : value_of(section, "device", "");
        const config_section *was = section_in(before, radio), *is = section_in(after, radio);
        if (!is_on(was) && !is_on(is))
            continue;
        radio_restart &restart = radios[radio];
        restart.radio = radio;
        restart.removed = !is;
        if (is_radio)
            restart.own_options = true;
        else
            restart.interfaces.push_back(name);
    }
    std::vector<radio_restart> list;
    for (auto &[name, restart] : radios)
        list.push_back(std::move(restart));
    return list;
}

push_effect effect_of(const config_record &before, const config_record &after,
                      const char *also_reloads)
{
    config_changes changes = config_difference(before, after);
    std::vector<std::string> services = services_of(changes, also_reloads);
    std::vector<radio_restart> radios = radios_of(changes, before, after);
    return {std::move(changes), std::move(services), std::move(radios)};
}
