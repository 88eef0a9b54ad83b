// The faults a neighbour plays: see the list in peer.h.
#pragma once

#include "peer.h"

/// The method "sim" for an object's table.
ubus_method peer_fault_method(ubus_handler_t handler);
/// Takes the fault that a call of "sim" asks for. Returns the bus status.
int peer_fault_set(blob_attr *msg);
/// Lets the object's handler answer a call and sends the answer as the present fault has it.
int peer_fault_answer(peer_object &object, ubus_request_data *request, const char *method,
                      blob_attr *msg);
/// Sends a notification as the present fault has it.
void peer_fault_notify(peer_object &object, const char *type, blob_attr *msg);
