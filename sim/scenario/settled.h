// "settled STATE": has the node become what it should be? Everything that follows from its
// upstream, from the last push it took and from nothing being the matter any more, in one place.
#pragma once

#include <string>

/// STATE is WAN, MESH or LONELY. What neither upstream nor push decides must be in UCI as it was
/// when it was remembered. `why` lists all that is not as it should be.
bool settled(const std::string &state, std::string *why);
