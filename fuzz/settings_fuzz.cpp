// libraries: tarn_daemon
// A settings document as the cloud could send it: as bytes of a message, or (beginning with "{") as
// JSON text. What the bus methods let through is parsed into a copy of the settings with every line
// logged, and the outcome is shown.

#include <cstdlib>
#include <cstring>
#include <string>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"
#include "wifi/settings/dump.h"
#include "wifi/settings/parse.h"
#include "wired/wired_settings.h"

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    (void)_parse_platform_data(R"({"wireless": {"num_radios": 3, "wifi_radios":
        [{"band": "2.4GHz"}, {"band": "5GHz"}, {"band": "scanning"}]}})");
    gDebug_file = fopen("/dev/null", "w"); // debug_init() would put a file in its place
    debug_set_level(ZU_LOG_DEBUG);
    return 0;
}

static wifi_settings live_settings()
{
    wifi_settings settings{};
    for (wifi_radio_settings &radio : settings.radios)
        radio.channel = 36;
    return settings;
}

static void show(const wifi_settings &settings, bool include_secrets)
{
    blob_buffer buf;
    blobmsg_buf_init(&buf);
    if (wifi_dump_settings(&buf, &settings, include_secrets) != 0 || !zu_blobmsg_valid(buf.head))
        abort();
}

/// Every text must be terminated and every number that counts within its array.
static void check(const wifi_settings &settings)
{
    bool sound = settings.dfs_channel_count >= 0 &&
                 settings.dfs_channel_count <= WIFI_DFS_CHANNELS_MAX && !settings.ap_scan &&
                 memchr(settings.mesh_key, 0, sizeof(settings.mesh_key)) &&
                 memchr(settings.reg_country, 0, sizeof(settings.reg_country));
    for (const wifi_radio_settings &radio : settings.radios)
        sound = sound && radio.enable <= 1 && wifi_channel_is_valid(radio.channel);
    for (const wifi_ssid_settings &ssid : settings.ssids) {
        sound = sound && memchr(ssid.roaming_key, 0, sizeof(ssid.roaming_key));
        for (const auto &mac : ssid.acl_list)
            sound = sound && memchr(mac, 0, sizeof(mac));
        for (const auto &server : ssid.dns_servers)
            sound = sound && memchr(server, 0, sizeof(server));
    }
    if (!sound)
        abort();
}

static void take(blob_attr *message)
{
    static constexpr blobmsg_policy POLICY = {"params", BLOBMSG_TYPE_TABLE};
    blob_attr *params = nullptr;
    (void)blobmsg_parse(&POLICY, 1, &params, blob_data(message),
                        static_cast<unsigned>(blob_len(message)));
    if (!params)
        return;
    static wifi_settings settings;
    settings = live_settings();
    wifi_parsed_document parsed = {&settings, nullptr, nullptr};
    if (wifi_settings_parse(params, &parsed) == 0) {
        check(settings);
        show(settings, true);
        show(settings, false);
    }
    wired_settings wired{};
    (void)wired_settings_parse(params, &wired);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    blob_buffer message;
    blobmsg_buf_init(&message);
    if (size > 0 && data[0] == '{') {
        const std::string text(reinterpret_cast<const char *>(data), size);
        if (blobmsg_add_json_from_string(&message, text.c_str()) && zu_blobmsg_valid(message.head))
            take(message.head);
        return 0;
    }
    // An allocation of just this size lets the sanitizer see a read past the end.
    const zu_text copy(static_cast<char *>(malloc(size)));
    if (size < sizeof(blob_attr))
        return 0;
    memcpy(copy.get(), data, size);
    auto *root = reinterpret_cast<blob_attr *>(copy.get());
    if (!blob_is_extended(root) && blob_raw_len(root) >= sizeof(blob_attr) &&
        blob_pad_len(root) <= size && zu_blobmsg_valid(root))
        take(root);
    return 0;
}
