// The log level of the configuration, whatever stands there.
#include <gtest/gtest.h>

#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"
#include "support/temporary_directory.h"

namespace {

TEST(LogLevel, TheConfiguredOneCountsWhenItIsOne)
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
        ASSERT_TRUE(ng_uci_renew_change_context());
        debug_set_level(2);
        debug_load_level("tarn_net.debug.debug_level");
        EXPECT_EQ(gDebug_log_level, c.level) << c.config;
    }
    debug_set_level(ZU_LOG_NOTICE);
}

} // namespace
