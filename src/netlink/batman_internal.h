// The batman-adv neighbour query below batman.h: its request and the callbacks that read the
// answer.
#pragma once

#include <cstdint>
#include <linux/netlink.h>

struct nl_msg;

/// Fills `msg` with the request for the neighbours of the mesh interface `mesh_index`.
[[nodiscard]] int bat_neighbors_request_build(nl_msg *msg, int family_id, uint32_t mesh_index);

/// Valid-message callback: counts a neighbour in the uint32_t that `counter` points to.
int bat_get_neighbors_cb(nl_msg *msg, void *counter);
/// Finish callback: logs the error that ended the dump; sets the bool behind `ended`, if given.
int bat_neighbors_finish(nl_msg *msg, void *ended);
