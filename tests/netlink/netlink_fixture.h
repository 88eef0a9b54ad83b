// What every netlink test starts from: a scripted kernel, the log, and a count of descriptors that
// must be the same at the end.
#pragma once

#include <gtest/gtest.h>

#include "netlink/scripted_kernel.h"
#include "support/open_descriptors.h"
#include "support/own_log.h"

class netlink_fixture : public testing::Test {
protected:
    void SetUp() override { descriptors_ = open_descriptors(); }
    void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_); }

    using lines = std::vector<std::string>;

    own_log log;
    scripted_kernel kernel;

private:
    long descriptors_ = 0;
};
