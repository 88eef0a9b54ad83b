// The radio stage: what disturbs the radios or the mesh goes into a batch file, which is applied at
// once or, when the change could cut a mesh node off, staged for later (delayed.cpp).
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/ng_uci_batch.h"
#include "wifi/radio/dfs.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wifi/write/fields_uci.h"
#include "wifi/write/write_internal.h"

static void stage_put(ng_uci_batch *batch, const std::string &name, const char *value)
{
    ng_uci_batch_set_fmt_string(batch, value, "%s", name.c_str());
}

static void stage_put(ng_uci_batch *batch, const std::string &name, int value)
{
    ng_uci_batch_set_fmt_int(batch, value, "%s", name.c_str());
}

// ---- what the batch holds

static void stage_radio_options(ng_uci_batch *batch, const wifi_write &w, int radio)
{
    fields_stage(batch, wifi_radio_part(*w.settings, radio), "wireless.radio%d");
    fields_stage(batch, wifi_node_part(*w.settings, radio, -1), "wireless.radio%d");
    ng_uci_put("u80211d.global.country",
               w.settings->reg_country); // not held back, and that is meant
}

static void stage_access_points(ng_uci_batch *batch, const wifi_write &w, int radio)
{
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        const std::string section = wifi_ap_section(radio, ssid);
        const bool active = wifi_write_ssid_is_active(w, radio, ssid);
        stage_put(batch, section + ".config_enable", active);
        stage_put(batch, section + ".enable", active && w.lldp_complete);
        stage_put(batch, section + ".ssidno", ssid - 1); // counts from 0, unlike every name
    }
}

static int mesh_enable_now(const wifi_write &w, int radio)
{
    const wifi_radio_settings &settings = w.settings->radios[radio];
    if (wifid_channel_is_dfs(static_cast<int>(settings.channel), settings.htmode)) {
        log_warning("Disabling mesh%d due to DFS radio channel", radio);
        return 0;
    }
    if (settings.enable == 0) {
        log_info("Disabling mesh%d due to radio disable", radio);
        return 0;
    }
    const int enable = settings.mesh_enable && w.lldp_complete;
    log_debug("mesh%d set to %d", radio, enable);
    return enable;
}

static void stage_mesh(ng_uci_batch *batch, const wifi_write &w, int radio)
{
    const wifi_radio_settings &settings = w.settings->radios[radio];
    const bool wanted = settings.enable != 0 && settings.mesh_enable;
    const std::string wireless = numbered("wireless.mesh", radio);
    const std::string network = numbered("network.mesh", radio);
    stage_put(batch, wireless + ".config_enable", wanted);
    if (wanted) {
        stage_put(batch, network, "interface");
        stage_put(batch, network + ".mtu", "1544");
        stage_put(batch, network + ".proto", "batadv_hardif");
        stage_put(batch, network + ".master", "bat0");
    } else {
        ng_uci_batch_del_fmt(batch, "%s", network.c_str());
    }
    stage_put(batch, wireless + ".enable", mesh_enable_now(w, radio));
    fields_stage(batch, wifi_node_part(*w.settings, radio, -1), "wireless.mesh%d");
}

static void stage_all(ng_uci_batch *batch, const wifi_write &w)
{
    for (int radio = 0; radio < w.radios; radio++) {
        if (wifi_write_is_scanning(w, radio))
            continue;
        stage_radio_options(batch, w, radio);
        stage_access_points(batch, w, radio);
        stage_mesh(batch, w, radio);
        if (wifi_write_has_dfs(w, radio))
            fields_stage(batch, wifi_node_part(*w.settings, -1, radio), "wireless.radio%d");
    }
    const wifi_part node = wifi_node_part(*w.settings, -1, -1);
    fields_stage(batch, node, "tarn_net.local");
    fields_stage(batch, node, "network.bat0");
}

// ---- now or later

static bool any_mesh(const wifi_write &w)
{
    for (int radio = 0; radio < w.radios; radio++)
        if (w.settings->radios[radio].mesh_enable)
            return true;
    return false;
}

static bool same_radio(const wifi_write &w, const wifi_air_settings &in_force, int radio)
{
    const wifi_radio_settings &a = w.settings->radios[radio], &b = in_force.radios[radio];
    // The configuration of a radio that is off does not say whether it is to carry the mesh.
    const wifi_radio_settings &mesh = b.enable != 0 ? b : wifi_live_settings()->radios[radio];
    return a.enable == b.enable && a.channel == b.channel && strcmp(a.htmode, b.htmode) == 0 &&
           a.mesh_enable == mesh.mesh_enable;
}

static bool same_mesh(const wifi_write &w, const wifi_air_settings &in_force)
{
    const wifi_settings &a = *w.settings;
    const wifi_air_settings &b = in_force;
    for (int radio = 0; radio < w.radios; radio++)
        if (!wifi_write_is_scanning(w, radio) && !same_radio(w, in_force, radio))
            return false;
    return strcmp(a.mesh_key, b.mesh_key) == 0 && strcmp(a.mesh_protocol, b.mesh_protocol) == 0 &&
           a.hop_penalty == b.hop_penalty && a.gw_stickiness == b.gw_stickiness &&
           a.bridge_loop_avoidance == b.bridge_loop_avoidance && a.reg_outdoor == b.reg_outdoor &&
           strcmp(a.reg_country, b.reg_country) == 0 && a.antenna_type == b.antenna_type;
}

static bool orphan_connection_ends(const wifi_settings &settings)
{
    return !settings.orphan_connect_bssid[0] && wifi_live_settings()->orphan_connect_bssid[0];
}

const char *wifi_write_at_once_reason(const wifi_write &w, const wifi_air_settings &in_force)
{
    if (!any_mesh(w))
        return "no radio carries the mesh";
    if (w.settings->radio_override[0])
        return "a local radio override is in place";
    if (orphan_connection_ends(*w.settings))
        return "an orphan connection ends";
    if (same_mesh(w, in_force))
        return "nothing of the mesh changes";
    if (!w.settings->delayed)
        return "delayed_settings is off";
    return nullptr;
}

/// A name that no file has.
static int name_batch(char *path, size_t size)
{
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        log_error("Unable to get time to generate unique delayed wifi file");
        return -1;
    }
    long number = static_cast<long>(now.tv_sec);
    do
        snprintf(path, size, WIFI_DELAYED_FILES "%ld", ++number);
    while (faccessat(AT_FDCWD, path, F_OK, AT_SYMLINK_NOFOLLOW) == 0);
    return 0;
}

int wifid_write_delayed_config(const wifi_write &w, const wifi_air_settings &in_force,
                               std::string *held_back)
{
    char path[64];
    if (name_batch(path, sizeof path) != 0)
        return -1;
    ng_uci_batch *batch = ng_uci_batch_open(path);
    if (!batch)
        return -1;
    stage_all(batch, w);
    if (ng_uci_batch_close(batch) != 0)
        return -1;
    const char *reason = wifi_write_at_once_reason(w, in_force);
    if (!reason) {
        *held_back = path;
        return 0;
    }
    log_info("Applying the radio settings at once: %s", reason);
    const int applied = ng_uci_batch_apply(path, false);
    (void)unlink(path);
    if (applied != 0) {
        log_error("Unable to write out delayed wifi settings");
        return -1;
    }
    return 0;
}
