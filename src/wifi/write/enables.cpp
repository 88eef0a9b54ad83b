// Switching access points and mesh interfaces on as they are intended to be (config_enable), once
// the power negotiation keeps them off no longer.
//
//     notification, end of a delayed wait ──► restoration ─── read or commit fails ─┐
//     start of the daemon, subscription, ───► check ── some enable is not ──────────┤
//     each half minute while they are off              as intended, and that fails  │
//                                   restoration, with a reload ◄── after a second ◄─┘ until done
//
// So a notification that was missed, or that met another process's lock, leaves nothing off, nor
// does power that comes from elsewhere meanwhile, of which nobody tells.

#include <optional>
#include <string>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "wifi/override.h"
#include "wifi/radio/dfs.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"

constexpr int RETRY_MS = 1000;
constexpr int KEPT_OFF_MS = 30000;

enum restoration {
    CHECK, ///< silent, and of use where it changes something
    WHOLE,
};

static uloop_timeout gTimer;               // a check, or the next try
static std::optional<restoration> gFailed; // the last try; said already

/// The settings writer takes the scanning radio's sections away.
static bool has_interfaces(int radio)
{
    return wifi_radio_band_type(radio) != WIFI_BAND_SCANNING;
}

static void restore_access_points(int radio)
{
    for (int ssid = 1; ssid <= WIFI_SSIDS; ssid++) {
        int enable = 0;
        if (ng_uci_get_int(&enable, "wireless.ap%d_%d.config_enable", radio, ssid) != 0) {
            if (has_interfaces(radio))
                log_warning("Unable to read 'config_enable' UCI option for iface ap%i_%i", radio,
                            ssid);
            continue;
        }
        ng_uci_put(ng_uci_name("wireless.ap%d_%d.enable", radio, ssid), enable);
    }
}

/// What the mesh interface's enable becomes: nothing on a DFS channel, else what is intended.
static int mesh_enable_on_channel(int radio, int intended)
{
    int channel = 0;
    if (ng_uci_get_int(&channel, "wireless.radio%d.channel", radio) != 0) {
        log_warning("Unable to read 'channel' UCI option for radio%i", radio);
        return intended;
    }
    std::string htmode;
    if (ng_uci_get_string(htmode, "wireless.radio%d.htmode", radio) != 0) {
        log_warning("Unable to read 'htmode' UCI option for radio%i", radio);
        return intended;
    }
    const bool is_dfs = wifid_channel_is_dfs(channel, htmode.c_str());
    const int enable = is_dfs ? 0 : intended;
    log_debug("Set uci_addr_mesh_enable to %d, mesh_iface_enable: %d channel_is_dfs: %d", enable,
              intended, is_dfs);
    return enable;
}

static void restore_mesh(int radio)
{
    int intended = 0;
    if (ng_uci_get_int(&intended, "wireless.mesh%d.config_enable", radio) != 0) {
        if (has_interfaces(radio))
            log_warning("Unable to read 'config_enable' UCI option for iface mesh%i", radio);
        return;
    }
    ng_uci_put(ng_uci_name("wireless.mesh%d.enable", radio),
               mesh_enable_on_channel(radio, intended));
}

static void end_orphan_connection(int radio)
{
    // The scanning radio has no such interface.
    if (!wifi_radio_override_active() && ng_uci_exists("wireless.orph_conn%d", radio))
        ng_uci_put(ng_uci_name("wireless.orph_conn%d.enable", radio), 0);
}

static void save_enables(restoration kind)
{
    std::optional<zu_log_repetition> quiet;
    if (kind == CHECK)
        quiet.emplace();
    const int radios = wifi_radio_count();
    for (int radio = 0; radio < radios; radio++) {
        restore_access_points(radio);
        restore_mesh(radio);
        if (kind == WHOLE) // what an orphan is connected by has no intent to compare with
            end_orphan_connection(radio);
    }
}

/// Commits every enable as intended. False when the package cannot be read or written now.
static bool commit_enables(restoration kind, bool *changed)
{
    std::optional<zu_log_repetition> quiet;
    if (gFailed)
        quiet.emplace();
    *changed = false;
    const ng_uci_readability wireless = ng_uci_check_readable("wireless");
    if (wireless != NG_UCI_READABLE)
        return wireless == NG_UCI_ABSENT; // then there is nothing to restore
    save_enables(kind);
    if (ng_uci_commit("wireless", changed) == 0)
        return true;
    ng_uci_drop_changes(); // somebody else would commit them without a reload
    return false;
}

static void try_again(restoration kind)
{
    if (!gFailed)
        log_warning("Unable to restore the interface configuration, trying again every second");
    gFailed = kind; // of a whole one only a whole one comes after it
    uloop_timeout_set(&gTimer, RETRY_MS);
}

static void restore(restoration kind, bool reload)
{
    bool changed;
    if (!commit_enables(kind, &changed)) {
        try_again(kind);
        return;
    }
    // The reload that may have followed a failed try came too early.
    const bool late = gFailed == WHOLE || (kind == CHECK && changed);
    if (late)
        log_notice("Restored the interface configuration");
    gFailed.reset();
    uloop_timeout_cancel(&gTimer);
    if (reload || late)
        (void)gWifi_requests.reload_config();
}

static void timer_cb(uloop_timeout *)
{
    if (!wifi_lldp_keeps_interfaces_off()) {
        restore(gFailed.value_or(CHECK), false);
        return;
    }
    gFailed.reset(); // the end of the negotiation restores
    uloop_timeout_set(&gTimer, KEPT_OFF_MS);
}

void wifi_restore_config_enabled_interfaces(bool reload)
{
    if (!wifi_lldp_negotiation_complete()) {
        log_notice("LLDP negotiation is in progress, skipping wifi interface config restoration");
        wifi_check_enables();
        return;
    }
    gTimer.cb = timer_cb;
    restore(WHOLE, reload);
}

void wifi_check_enables()
{
    gTimer.cb = timer_cb;
    if (!gFailed)
        uloop_timeout_set(&gTimer, 0);
}
