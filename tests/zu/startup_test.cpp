// What is read at start from fixed paths: the platform file, and the log level in UCI.
#include "platform/zu/log.h"
#include "platform/zu/platform_data.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

TEST(startup, the_platform_file_is_read_whole_or_not_at_all)
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

TEST(startup, the_configured_log_level_counts_when_it_is_one)
{
    const struct {
        const char *config;
        int level;
    } cases[] = {
        {"config debug 'debug'\n\toption debug_level '5'\n", 5},
        {"config debug 'debug'\n\toption debug_level '0'\n", 0},
        {"config debug 'debug'\n\toption debug_level '6'\n", 2},
        {"config debug 'debug'\n\toption debug_level '-1'\n", 2},
        {"config debug 'debug'\n\toption debug_level 'loud'\n", 2},
        {"config debug 'debug'\n", 2},
        {"not a configuration", 2},
    };
    for (const auto &c : cases) {
        write_file("/etc/config/tarn_net", c.config);
        debug_set_level(2);
        debug_load_level("tarn_net.debug.debug_level");
        EXPECT_EQ(gDebug_log_level, c.level) << c.config;
    }
    debug_set_level(ZU_LOG_NOTICE);
}

} // namespace
