// libraries: tarn_daemon
// The text that batctl leaves behind, as hostile as it gets.

#include <cstddef>
#include <cstdint>

#include "mesh/gateway_facts.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    mesh_gateway_facts facts{};
    mesh_gateway_facts_parse(&facts, {reinterpret_cast<const char *>(data), size});
    bool known = false;
    (void)mesh_gateway_speed_is_low(&facts, &known);
    mesh_gateway_facts_clear(&facts);
    return 0;
}
