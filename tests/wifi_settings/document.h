// Settings documents in a test: made from JSON text, parsed into a record of the test's own.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"
#include "support/json_message.h"
#include "support/temporary_directory.h"
#include "wifi/settings/parse.h"

/// Two radios with settings and one that scans.
constexpr char PLATFORM[] = R"({"wireless": {"num_radios": 3, "wifi_radios":
    [{"band": "2.4GHz"}, {"band": "5GHz"}, {"band": "scanning"}]}})";

/// A message made from JSON text: a whole one, or its `params` alone.
struct document : json_message {
    explicit document(const std::string &json, bool whole = false)
        : json_message(whole ? json : "{\"params\":" + json + "}")
    {
    }
    blob_attr *params() const
    {
        static constexpr blobmsg_policy POLICY = {"params", BLOBMSG_TYPE_TABLE};
        blob_attr *found = nullptr;
        EXPECT_EQ(blobmsg_parse(&POLICY, 1, &found, blob_data(head),
                                static_cast<unsigned>(blob_len(head))),
                  0);
        return found;
    }
};

/// The ERROR lines logged while it lives.
struct error_lines : std::vector<std::string> {
    error_lines()
    {
        zu_log_set_error_listener(
            [](const char *line, void *self) {
                static_cast<error_lines *>(self)->emplace_back(line);
            },
            this);
    }
    ~error_lines() { zu_log_set_error_listener(nullptr, nullptr); }
    error_lines(const error_lines &) = delete;
    error_lines &operator=(const error_lines &) = delete;
};

/// What became of a document on a node with the settings `before`.
struct parsed {
    int status = -1;
    std::vector<std::string> errors;
    std::unique_ptr<wifi_settings> settings = std::make_unique<wifi_settings>();
    std::string override_reason;

    parsed(blob_attr *params, const wifi_settings &before)
    {
        memcpy(settings.get(), &before, sizeof(before));
        wifi_parsed_document result = {settings.get(), nullptr, nullptr};
        error_lines lines;
        status = wifi_settings_parse(params, &result);
        errors.assign(lines.begin(), lines.end());
        override_reason = result.override_reason ? result.override_reason : "";
    }
    parsed(const std::string &json, const wifi_settings &before)
        : parsed(document(json).params(), before)
    {
    }
    const wifi_settings *operator->() const { return settings.get(); }
};

/// A node whose radios have channels.
inline const wifi_settings &configured_node()
{
    static wifi_settings settings;
    for (wifi_radio_settings &radio : settings.radios)
        radio.channel = 36;
    return settings;
}

inline std::string example(const std::string &name)
{
    return read_file(std::string(EXAMPLES_DIR) + "/" + name + ".json");
}
