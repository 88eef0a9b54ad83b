// Shared by the files of the wired package.
#pragma once

#include <cstdint>

/// Index of the wired interface that a wired event took down; -1 before the first one.
extern int32_t gWired_taken_down;
