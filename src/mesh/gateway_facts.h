// What is known of the batman-adv gateway: five texts taken from the output of batctl.
//
// The output is untrusted: every token is checked whole before it is kept. Collecting the output
// is statistics.cpp's business.
#pragma once

#include <string_view>

#include "state/mesh_state.h"

/// Frees and clears all five.
void mesh_gateway_facts_clear(mesh_gateway_facts *facts);

/// Replaces `facts` by what `text` (blank-separated tokens) holds. 0; -1 when a fact is missing or
/// the text is empty (logged): what was found is kept, the rest is unknown.
int mesh_gateway_facts_parse(mesh_gateway_facts *facts, std::string_view text);

/// True when the throughput to the gateway is below 250 KB/s, with a NOTICE; `*known` tells whether
/// there is a speed to judge at all.
bool mesh_gateway_speed_is_low(const mesh_gateway_facts *facts, bool *known);
