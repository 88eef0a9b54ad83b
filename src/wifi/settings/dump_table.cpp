// The walk over the items of the state dump.
#include "wifi/settings/dump_table.h"

#include <algorithm>
#include <cstring>

#include "platform/zu/blobmsg_util.h"
#include "platform/zu/log.h"

/// Adds `count` texts of one length that lie `size` bytes apart. An access list has a thousand: a
/// few elements are made by libubox, the others are copies of them with other values.
static int add_equal_texts(blob_buf *buf, const char *element, const char *texts, size_t count,
                           size_t size)
{
    constexpr size_t FEW = 64;
    blob_buffer models;
    if (blobmsg_buf_init(&models) != 0)
        return -1;
    for (size_t i = 0; i < std::min(FEW, count); i++)
        if (blobmsg_add_string(&models, element, texts) != 0)
            return -1;
    auto *attr = static_cast<blob_attr *>(blob_data(models.head));
    auto *first = static_cast<char *>(blobmsg_data(attr));
    const size_t step = blob_pad_len(attr);
    const size_t length = strlen(texts);
    if (!blob_buf_grow(buf, static_cast<int>(count * step)))
        return -1;
    while (count > 0) {
        const size_t some = std::min(FEW, count);
        for (size_t i = 0; i < some; i++, texts += size)
            std::copy_n(texts, length, first + i * step);
        if (!blob_put_raw(buf, attr, static_cast<unsigned>(some * step)))
            return -1;
        count -= some;
    }
    return 0;
}

/// Texts of `size` bytes each up to the first empty one.
static int add_texts(blob_buf *buf, const char *element, const char *texts, size_t slots,
                     size_t size)
{
    int result = 0;
    while (slots > 0 && *texts) {
        const size_t length = strlen(texts);
        size_t count = 1;
        while (count < slots && strlen(texts + count * size) == length)
            count++;
        result |= add_equal_texts(buf, element, texts, count, size);
        texts += count * size;
        slots -= count;
    }
    return result;
}

static int add_integers(blob_buf *buf, const char *element, const char *integers, size_t slots,
                        size_t size)
{
    const uint32_t count = settings_load(SETTINGS_INT, integers + slots * size).number;
    int result = 0;
    for (size_t i = 0; i < count; i++)
        result |=
            blobmsg_add_u32(buf, element, settings_load(SETTINGS_INT, integers + i * size).number);
    return result;
}

static int add_list(blob_buf *buf, const dump_item &item, const wifi_field &field,
                    const char *member)
{
    const auto add = field.kind == SETTINGS_INTS ? add_integers : add_texts;
    const dump_nest array(buf, item.key, true);
    return array ? add(buf, item.element ? item.element : item.key, member, field.slots, field.size)
                 : 0;
}

static int add_value(blob_buf *buf, const char *key, settings_kind kind, const char *member)
{
    const settings_value value = settings_load(kind, member);
    if (value.text)
        return blobmsg_add_string(buf, key, value.text);
    if (kind == SETTINGS_INT)
        return blobmsg_add_u32(buf, key, value.number);
    return blobmsg_add_u8(buf, key, value.number != 0);
}

dump_nest::dump_nest(blob_buf *buf, const char *name, bool array)
    : buf_(buf), cookie_(blobmsg_open_nested(buf, name, array))
{
    if (!cookie_)
        log_warning("Unable to open '%s' for the state dump", name);
}

dump_nest::~dump_nest()
{
    if (cookie_)
        blob_nest_end(buf_, cookie_);
}

void dump_report(int result, const dump_table &table, const char *what)
{
    if (result != 0)
        log_info("Unable to add %s%s%s", table.name, table.name[0] ? " " : "", what);
}

int dump_setting(blob_buf *buf, const dump_item &item, const wifi_field &field, const void *part,
                 bool include_secrets)
{
    const char *member = static_cast<const char *>(part) + field.offset;
    if (field.secret && !field.dumped_openly && !include_secrets)
        return 0;
    return field_is_list(field) ? add_list(buf, item, field, member)
                                : add_value(buf, item.key, field.kind, member);
}

void dump_items(blob_buf *buf, const dump_table &table, const void *part, bool include_secrets)
{
    for (size_t i = 0; i < table.items.size(); i++) {
        const dump_item &item = table.items[i];
        const int result =
            item.add ? item.add(buf, part, include_secrets)
                     : dump_setting(buf, item, table.fields[table.rows[i]], part, include_secrets);
        dump_report(result, table, item.failed ? item.failed : item.key);
    }
}

void dump_part(blob_buf *buf, const dump_table &table, const void *part, bool include_secrets)
{
    dump_items(buf, table, part, include_secrets);
    for (const uint8_t row : table.others) {
        const wifi_field &field = table.fields[row];
        dump_report(dump_setting(buf, {field.name}, field, part, include_secrets), table,
                    field.name);
    }
}
