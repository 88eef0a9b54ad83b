// libraries: tarn_daemon
// What u80211d answers to "scan" and to "survey": members of a message, as hostile as they get.
// What is kept of them must be a message that becomes JSON text.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/zu/blobmsg_util.h"
#include "wifi/radio/radio_internal.h"

/// The bytes as the members of a message.
static std::vector<uint8_t> message_of(const uint8_t *data, size_t size)
{
    std::vector<uint8_t> message(sizeof(blob_attr) + size + 3);
    if (size > 0)
        memcpy(message.data() + sizeof(blob_attr), data, size);
    message.resize(sizeof(blob_attr) + size);
    auto *root = reinterpret_cast<blob_attr *>(message.data());
    root->id_len = cpu_to_be32(static_cast<uint32_t>(message.size()));
    return message;
}

static void check_text(blob_buf *results)
{
    const zu_text text = zu_blobmsg_json(results->head, true);
    if (!text)
        abort();
    for (const char *c = text.get(); *c; c++)
        if (static_cast<unsigned char>(*c) < 0x20)
            abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<uint8_t> message = message_of(data, size);
    auto *root = reinterpret_cast<blob_attr *>(message.data());
    ubus_request request{};

    scanning_result scanned{};
    strcpy(scanned.ifname, "scan");
    request.priv = &scanned;
    wifi_scan_collect_results_data_cb(&request, 0, root);
    if (scanned.results.head)
        check_text(&scanned.results);
    blob_buf_free(&scanned.results);

    survey_entry surveyed{};
    request.priv = &surveyed;
    wifi_survey_data_cb(&request, 0, root);
    return 0;
}
