// What a wired port that got its link has moved.
#pragma once

#include <cstdint>

/// Index of the wired interface that a wired event took down; -1 before the first one.
extern int32_t gWired_taken_down;

/// After each cycle of the internet test: a port that was taken down for another one comes up again
/// once that one has failed as often as is tolerated.
void wired_event_weigh_cycle(bool passed_over_wire);
