#include "netlink/log_capture.h"

#include <fstream>
#include <regex>

#include "platform/zu/log.h"

log_capture::log_capture()
{
    debug_init(path_.c_str());
    debug_set_level(ZU_LOG_DEBUG);
}

log_capture::~log_capture()
{
    if (gDebug_file)
        fclose(gDebug_file);
    gDebug_file = nullptr;
}

std::vector<std::string> log_capture::take()
{
    static const std::regex LINE(R"(^.* \[\d+\] \w+:\d+: (\w+): (.*)$)");
    std::ifstream file(path_);
    file.seekg((std::streamoff)offset_);
    std::vector<std::string> out;
    for (std::string line; std::getline(file, line);) {
        std::smatch match;
        offset_ += line.size() + 1;
        out.push_back(std::regex_match(line, match, LINE) ? match[1].str() + " " + match[2].str()
                                                          : "UNREADABLE " + line);
    }
    return out;
}
