// The platform file at its fixed path, read at start.
#include "platform/zu/platform_data.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

TEST(platform_file, is_read_whole_or_not_at_all)
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
    remove("/etc/tarn/platform.json");
    platform_detect();
    EXPECT_EQ(platform_get_model(), nullptr);
}

} // namespace
