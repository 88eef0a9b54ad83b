// The settings writer in this process, on the sandbox's configuration, which each test finds as it
// was made.
#pragma once

#include <gtest/gtest.h>
#include <sstream>
#include <string>

extern "C" {
#include <libubox/uloop.h>
}

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "platform/zu/platform_data.h"
#include "state/owned.h"
#include "support/json_message.h"
#include "support/node.h"
#include "wifi/settings/dump.h"
#include "wifi/wifi.h"
#include "wifi/wifi_internal.h"
#include "wired/inet_probe.h"
#include "wired/upstream.h"

struct writer_fixture : testing::Test, logging {
    writer_fixture() { debug_set_level(ZU_LOG_NOTICE); }
    void SetUp() override
    {
        begin_anew();
        run("echo 1 >/sys/class/gpio/dc_detect/value; "
            "uci set tarn_net.inet_test_config.test_interval=0; " // no internet test of its own
            "uci delete tarn_net.inet_test_config.inet_test_targets; uci commit tarn_net");
        platform_detect();
        uloop_init();
        inet_test_reset();
        inet_test_init();
        restart();
    }
    void TearDown() override
    {
        wifi_delayed_drop();
        ng_uci_drop_changes();
        uloop_done();
    }

    /// What a new process would know.
    static void restart()
    {
        (void)ng_uci_renew_change_context();
        gWifi_live_settings = {};
        EXPECT_EQ(wifi_reload_config(true), 0);
    }
    static int push(const std::string &params)
    {
        return push(json_message("{\"params\":" + params + "}").head);
    }
    static int push(blob_attr *whole)
    {
        const int status = wifi_parse_config(nullptr, whole, nullptr);
        (void)ng_uci_renew_change_context(); // the callback ends
        return status;
    }
    /// The event that follows a push.
    static void confirm(bool success)
    {
        const json_message event(success ? R"({"success":true})" : R"({"success":false})");
        wifid_parse_config_event_handler(nullptr, nullptr, "parse_config_status", event.head);
        (void)ng_uci_renew_change_context();
    }
    static std::string example(const std::string &name)
    {
        return read_file(std::string(EXAMPLES_DIR) + "/" + name + ".json");
    }

    /// The whole record as the dump shows it, with what it hides of what is off.
    static std::string everything()
    {
        wifi_settings all = *wifi_live_settings();
        std::string enables;
        for (wifi_ssid_settings &ssid : all.ssids) {
            enables += ssid.enable ? '1' : '0';
            enables += ssid.configured ? '1' : '0';
            ssid.enable = true;
        }
        for (wifi_radio_settings &radio : all.radios) {
            enables += std::to_string(radio.enable);
            radio.enable = 1;
        }
        enables += std::to_string(all.presence_interval) + " " + std::to_string(all.dfs_enable);
        all.presence_enable = all.dfs_enable = true;
        blob_buffer buf;
        blob_buf_init(&buf, 0);
        EXPECT_EQ(wifi_dump_settings(&buf, &all, true), 0);
        const zu_text shown(blobmsg_format_json(buf.head, true));
        return enables + shown.get();
    }
    /// The dump's own view.
    static std::string shown()
    {
        blob_buffer buf;
        blob_buf_init(&buf, 0);
        EXPECT_EQ(wifi_dump_settings(&buf, wifi_live_settings(), true), 0);
        return zu_text(blobmsg_format_json(buf.head, true)).get();
    }

    static std::string batch_file()
    {
        std::string name = run("ls -d /tmp/wifi-delayed-* 2>/dev/null").output;
        return name.empty() ? name : name.substr(0, name.size() - 1);
    }
    /// Not counting that there are no radios to listen to and no u80211d to ask.
    int logged(const std::string &text) const
    {
        int found = 0;
        std::istringstream all(log.text());
        for (std::string line; std::getline(all, line);)
            found += line.find(text) != std::string::npos &&
                     line.find("mlme") == std::string::npos &&
                     line.find("netlink callbacks") == std::string::npos &&
                     line.find("survey data") == std::string::npos;
        return found;
    }
    static void all_packages_quiet()
    {
        EXPECT_EQ(run("cat /tmp/.uci/* 2>/dev/null").output, "") << "nothing is left uncommitted";
    }
};
