// What this process logs.
#pragma once

#include <string>
#include <vector>

#include "platform/zu/log.h"
#include "support/occurrences.h"
#include "support/temporary_directory.h"

/// The log for as long as one of these lives, in a file of its own.
class own_log {
    temporary_directory directory_;

public:
    const std::string path = directory_ / "log";

    explicit own_log(int level = ZU_LOG_DEBUG)
    {
        debug_init(path.c_str());
        debug_set_level(level);
    }
    ~own_log()
    {
        if (gDebug_file)
            fclose(gDebug_file);
        gDebug_file = nullptr;
    }
    own_log(const own_log &) = delete;
    own_log &operator=(const own_log &) = delete;

    std::string text() const { return read_file(path); }
    int count(const std::string &what) const { return occurrences(text(), what); }
    void clear()
    {
        write_file(path, "");
        taken_ = 0;
    }
    /// The lines since the last call, "LEVEL text" without time, process and place.
    std::vector<std::string> take()
    {
        std::vector<std::string> lines;
        const std::string all = text();
        for (size_t end; (end = all.find('\n', taken_)) != std::string::npos; taken_ = end + 1) {
            std::string line = all.substr(taken_, end - taken_);
            const size_t place = line.find(": ", line.find("] "));
            line.erase(0, place == std::string::npos ? 0 : place + 2);
            if (const size_t level = line.find(':'); level != std::string::npos)
                line.erase(level, 1);
            lines.push_back(line);
        }
        return lines;
    }

private:
    size_t taken_ = 0;
};

/// For fixtures of tests that look into it.
struct logging {
    own_log log;

    int logged(const std::string &text) const { return log.count(text); }
};
