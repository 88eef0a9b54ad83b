// The platform file at its fixed path, read at start.
#include <algorithm>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"
#include "support/own_log.h"
#include "support/temporary_directory.h"

namespace {

TEST(PlatformFile, IsReadWholeOrNotAtAll)
{
    mkdir("/etc/tarn", 0755);
    write_file("/etc/tarn/platform.json", R"({"model": "AP-3"})");
    platform_detect();
    EXPECT_STREQ(platform_get_model(), "AP-3");
    for (const std::string &content : {std::string("{\"model\": "), std::string(),
                                       "{\"model\": \"AP-4\"}" + std::string(100000, ' ')}) {
        write_file("/etc/tarn/platform.json", content);
        platform_detect();
        EXPECT_EQ(platform_get_model(), nullptr);
    }
    write_file("/etc/tarn/platform.json", R"({"model": "AP-5"})");
    platform_detect();
    // A file that is missing is said once, a member that is missing also, however often it is
    // asked.
    const std::pair<const char *, int> errors[] = {{nullptr, 1}, {"{}", 2}, {"{", 1}};
    for (const auto &[content, count] : errors) {
        remove("/etc/tarn/platform.json");
        if (content)
            write_file("/etc/tarn/platform.json", content);
        const own_log log;
        platform_detect();
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(platform_wireless_get_num_radios(), -1);
            EXPECT_EQ(platform_wireless_get_radio_band_name(i), nullptr);
        }
        EXPECT_EQ(log.count("\n"), count) << log.text();
    }
    EXPECT_EQ(platform_get_model(), nullptr);
}

} // namespace
