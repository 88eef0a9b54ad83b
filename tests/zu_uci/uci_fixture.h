// Package "zt" in the sandbox's configuration, and the errors and warnings that were logged.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/zu/ng_uci.h"
#include "support/node.h"

constexpr const char *CONFIG = "/etc/config/zt", *DELTA = "/tmp/.uci/zt";
constexpr const char *BASE = "\nconfig part 'a'\n\toption one '1'\n\toption single 'x'\n"
                             "\tlist items 'p'\n\tlist items 'q'\n\tlist items 'r'\n\n"
                             "config part 'b'\n\toption one '1'\n\n";

struct uci_fixture : testing::Test, logging {
    void SetUp() override
    {
        debug_set_level(ZU_LOG_NOTICE);
        reset();
        log.clear();
    }

    /// The package as it began, with no changes.
    void reset()
    {
        (void)ng_uci_renew_change_context(); // what an earlier test left is written out first
        unlink(DELTA);
        write_file(CONFIG, BASE);
        (void)ng_uci_renew_change_context();
    }

    int act(ng_uci_action action, const char *value, const char *name)
    {
        return ng_uci_save_action_ctx(ng_uci_change_context(), action, value, "%s", name);
    }

    std::string config() { return read_file(CONFIG); }
    std::string delta() { return read_file(DELTA); }

    /// Runs the uci tool (or any command line); its output.
    static std::string shell(const std::string &command) { return run(command).output; }
};
