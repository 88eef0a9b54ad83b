// The daemon with radios that no kernel has: FAKE_STATIONS stations (200) on two of three. Linked
// with its main().
#include <cstdlib>

#include "support/fake_radios.h"

struct load {
    const char *wanted = getenv("FAKE_STATIONS");
    fake_radios node = fake_loaded_node(wanted ? static_cast<unsigned>(atoi(wanted)) : 200);
    load() { gFake_radios = &node; }
} loaded;
