// What is logged while one of these lives, one "LEVEL text" a line, without time, place and
// process.
#pragma once

#include <string>
#include <vector>

#include "support/temporary_directory.h"

class log_capture {
public:
    log_capture();
    ~log_capture();
    log_capture(const log_capture &) = delete;
    log_capture &operator=(const log_capture &) = delete;

    /// The lines since the last call.
    std::vector<std::string> take();

private:
    temporary_directory directory_;
    std::string path_ = directory_ / "log";
    size_t offset_ = 0;
};
