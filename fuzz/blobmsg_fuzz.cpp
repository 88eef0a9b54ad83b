// libraries: host_blobmsg_json
// Hostile bytes and hostile JSON. The first byte chooses: a message as a peer could send it, which
// is checked, parsed and printed; or a text, which must give the same message again once printed.
#include <libubox/blobmsg_json.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static constexpr blobmsg_policy POLICY[] = {
    {"a", BLOBMSG_TYPE_INT32}, {"a", BLOBMSG_CAST_INT64},    {"s", BLOBMSG_TYPE_STRING},
    {"t", BLOBMSG_TYPE_TABLE}, {nullptr, BLOBMSG_TYPE_INT8}, {"", BLOBMSG_TYPE_UNSPEC},
};
static constexpr int POLICY_LEN = sizeof(POLICY) / sizeof(POLICY[0]);

/// Reads every byte that a caller could reach through the attribute.
static void touch(blob_attr *attr)
{
    if (!attr)
        return;
    volatile uint64_t sum = blobmsg_cast_u64(attr);
    if (blobmsg_type(attr) == BLOBMSG_TYPE_STRING)
        sum = sum + strlen(blobmsg_get_string(attr)) + strlen(blobmsg_name(attr));
    if (blobmsg_type(attr) == BLOBMSG_TYPE_DOUBLE)
        sum = sum + std::isnan(blobmsg_get_double(attr));
}

static void take_apart(blob_attr *root)
{
    blob_attr *tb[POLICY_LEN];
    (void)blobmsg_parse_attr(POLICY, POLICY_LEN, tb, root);
    for (blob_attr *attr : tb)
        touch(attr);
    (void)blobmsg_parse_array_attr(POLICY, POLICY_LEN, tb, root);
    for (blob_attr *attr : tb)
        touch(attr);
    (void)blobmsg_check_attr_list(root, BLOBMSG_TYPE_INT32);
    for (bool list : {true, false})
        free(blobmsg_format_json_indent(root, list, 0));
}

static void fuzz_bytes(const uint8_t *data, size_t size)
{
    // An allocation of just this size lets the sanitizer see a read past the end.
    std::vector<uint8_t> copy(data, data + size);
    auto *root = reinterpret_cast<blob_attr *>(copy.data());
    static const blob_attr_info INFO[4] = {{},
                                           {BLOB_ATTR_INT32, 0, 0, nullptr},
                                           {BLOB_ATTR_STRING, 6, 0, nullptr},
                                           {BLOB_ATTR_NESTED, 0, 64, nullptr}};
    blob_attr *tb[4];
    (void)blob_parse_untrusted(root, size, tb, INFO, 4);
    if (size < sizeof(blob_attr) || blob_raw_len(root) > size ||
        blob_raw_len(root) < sizeof(blob_attr))
        return;
    take_apart(root);
    if (blobmsg_check_attr(root, false))
        touch(root);
}

/// What was read from JSON text prints as JSON text that reads as the same bytes.
static void fuzz_text(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    blob_buf first = {}, second = {};
    blobmsg_buf_init(&first);
    blobmsg_buf_init(&second);
    if (blobmsg_add_json_from_string(&first, text.c_str())) {
        take_apart(first.head);
        char *printed = blobmsg_format_json(first.head, true);
        // Six decimals lose digits, and an empty name is not printed: then only soundness counts.
        bool exact = !strchr(printed, '.') && !strstr(printed, "nan") && !strstr(printed, "inf") &&
                     text.find("\"\"") == std::string::npos &&
                     text.find("''") == std::string::npos && text.find('\\') == std::string::npos;
        if (exact && (!blobmsg_add_json_from_string(&second, printed) ||
                      !blob_attr_equal(first.head, second.head)))
            abort();
        free(printed);
    }
    blob_buf_free(&first);
    blob_buf_free(&second);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    if (data[0] & 1)
        fuzz_text(data + 1, size - 1);
    else
        fuzz_bytes(data + 1, size - 1);
    return 0;
}
