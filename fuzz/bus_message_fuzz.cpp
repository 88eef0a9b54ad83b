// libraries: tarn_fw_core
// Messages from strangers on the bus: whatever the bytes, the whole-message check answers, and what
// it lets through can be shown, copied and parsed.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/fw_core/fw_core.h"
#include "platform/zu/blobmsg_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The bus library hands over a root whose length is that of what it received.
    const size_t padded = (size + 3) & ~size_t{3};
    std::vector<uint32_t> memory(1 + padded / 4);
    memcpy(&memory[1], data, size);
    auto *message = reinterpret_cast<blob_attr *>(memory.data());
    blob_set_raw_len(message, static_cast<unsigned>(sizeof *message + size));

    if (zu_blobmsg_valid(message)) {
        blob_buffer copy;
        blob_buf_init(&copy, 0);
        if (zu_blobmsg_copy(&copy, message) != 0 || !zu_blobmsg_json(copy.head, true))
            abort();
    }
    (void)package_include_secrets(message);
    return 0;
}
