// How many neighbours batman-adv sees on "bat0", asked over generic netlink.
//
// The socket is made by the first query and kept until bat_nlsock_close(): whoever ends the period
// in which queries are made (a change of upstream, a timer) closes it.
#pragma once

#include <cstdint>

struct nl_sock;
struct nl_cb;

/// The query's socket and what belongs to it; all zero while it is closed.
struct bat_neighbor_query {
    nl_sock *socket;
    nl_cb *callbacks;
    int32_t family_id; ///< generic netlink id of "batadv"
};

extern bat_neighbor_query gBat_neighbor_query;

/// Opens the socket and finds the batman-adv family. 0 or -1 (logged), then nothing stays open.
[[nodiscard]] int bat_nlsock_create();
/// Closes the socket, if any.
void bat_nlsock_close();
/// The number of neighbours on "bat0", 0 also on any failure. Blocks until the kernel has answered.
[[nodiscard]] uint32_t bat_check_neighbors();
