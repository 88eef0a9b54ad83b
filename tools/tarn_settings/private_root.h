// A file system that this process alone sees, in memory, so that the daemon's code finds its
// absolute paths, and can change, run and reach nothing else.
#pragma once

#include <map>
#include <string>

/// Contents by path.
using private_files = std::map<std::string, std::string>;

/// Reads the packages that a push writes to from `directory`, as files below /etc/config. False
/// with the reason in `error`.
bool read_packages(const std::string &directory, private_files &files, std::string &error);

/// Moves this process, for good, into namespaces of its own with a root that holds these files, a
/// /tmp and a /var/state, and nothing else: no program, no device, no network. False with the
/// reason in `error`; the process is then to end.
bool enter_private_root(const private_files &files, std::string &error);
