// Bytes in, bytes and text out: what a router's library makes of each case in blobmsg.json.
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <libubox/blobmsg_json.h>
#include <string>
#include <vector>

#include "support/hex.h"
#include "support/json_rows.h"

using bytes = std::vector<uint8_t>;

static std::string take(char *text)
{
    std::string copy = text ? text : "";
    free(text);
    return copy;
}

/// Member `key`, or the bytes that member `key`_hex spells.
static std::string text_of(json_object *row, const std::string &key)
{
    if (json_object *plain = member(row, key.c_str()))
        return text(plain);
    const bytes raw = from_hex(text(member(row, (key + "_hex").c_str())));
    return {raw.begin(), raw.end()};
}

/// Runs `check` with every row of a group.
template <typename Check>
static void for_each_row(const char *group, Check check)
{
    const json_handle root = load_json("libubox/blobmsg.json");
    const auto rows = elements(member(root.get(), group));
    ASSERT_FALSE(rows.empty());
    for (json_object *row : rows) {
        SCOPED_TRACE(text_of(row, "name"));
        check(row);
    }
}

static void expect_message(json_object *row, const blob_buf &buf)
{
    EXPECT_EQ(to_hex(std::string_view((char *)buf.head, blob_raw_len(buf.head))),
              text_of(row, "blob_hex"));
    EXPECT_EQ(take(blobmsg_format_json(buf.head, true)), text_of(row, "format_compact"));
    if (member(row, "format_indent0") || member(row, "format_indent0_hex")) {
        EXPECT_EQ(take(blobmsg_format_json_indent(buf.head, true, 0)),
                  text_of(row, "format_indent0"));
    }
}

TEST(BlobmsgVectors, JsonTextToBytesAndBack)
{
    blob_buf buf = {};
    for_each_row("json_cases", [&](json_object *row) {
        blobmsg_buf_init(&buf);
        bool expected = json_object_get_boolean(member(row, "add_from_string_ok"));
        EXPECT_EQ(blobmsg_add_json_from_string(&buf, text_of(row, "json").c_str()), expected);
        expect_message(row, buf);
    });
    blob_buf_free(&buf);
}

/// One line of "verb name value" against the typed functions.
static void perform(blob_buf *buf, std::vector<void *> *open, const std::string &op)
{
    char verb[16] = "", word[32] = "", rest[64] = "";
    sscanf(op.c_str(), "%15s %31s %63[^\n]", verb, word, rest);
    const char *name = strcmp(word, "NULL") == 0 ? nullptr : word;
    if (strcmp(word, "EMPTY") == 0)
        name = "";
    std::string what = verb;
    uint64_t number = strtoull(rest, nullptr, 10);
    if (what == "u8")
        blobmsg_add_u8(buf, name, static_cast<uint8_t>(number));
    else if (what == "u16")
        blobmsg_add_u16(buf, name, static_cast<uint16_t>(number));
    else if (what == "u32")
        blobmsg_add_u32(buf, name, static_cast<uint32_t>(number));
    else if (what == "u64")
        blobmsg_add_u64(buf, name, number);
    else if (what == "double")
        blobmsg_add_double(buf, name, strtod(rest, nullptr));
    else if (what == "string")
        blobmsg_add_string(buf, name, rest);
    else if (what == "unspec")
        blobmsg_add_field(buf, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0);
    else if (what == "table")
        open->push_back(blobmsg_open_table(buf, name));
    else if (what == "array")
        open->push_back(blobmsg_open_array(buf, name));
    else if (what == "close") {
        blobmsg_close_table(buf, open->back());
        open->pop_back();
    } else if (what == "strbuf") {
        char text[32];
        unsigned room;
        sscanf(rest, "%u %31s", &room, text);
        memset(blobmsg_alloc_string_buffer(buf, name, room), 'z', room);
        strcpy(static_cast<char *>(blobmsg_realloc_string_buffer(buf, room * 10)), text);
        blobmsg_add_string_buffer(buf);
    } else if (what == "printf")
        EXPECT_EQ(blobmsg_printf(buf, name, "<%s|%d>", rest, 42), 6);
    else if (what == "field") {
        char digits[32];
        int type;
        sscanf(rest, "%d %31s", &type, digits);
        bytes raw = from_hex(digits);
        blobmsg_add_field(buf, type, name, raw.data(), static_cast<unsigned>(raw.size()));
    } else if (what == "blob_u32")
        blob_put_u32(buf, atoi(word), static_cast<uint32_t>(number));
    else if (what == "blob_u8")
        blob_put_u8(buf, atoi(word), static_cast<uint8_t>(number));
    else if (what == "blob_string")
        blob_put_string(buf, atoi(word), rest);
    else
        FAIL() << "unknown operation " << op;
}

TEST(BlobmsgVectors, TypedFunctionsToBytes)
{
    blob_buf buf = {};
    for_each_row("api_cases", [&](json_object *row) {
        blob_buf_init(&buf, json_object_get_int(member(row, "root_id")));
        std::vector<void *> open;
        for (const std::string &op : texts(member(row, "ops")))
            perform(&buf, &open, op);
        expect_message(row, buf);
    });
    blob_buf_free(&buf);
}

static std::string describe(blob_attr *attr, const void *base)
{
    static constexpr const char *NAMES[] = {"unspec", "array", "table", "string", "int64",
                                            "int32",  "int16", "int8",  "double"};
    if (!attr)
        return " -";
    return " off=" +
           std::to_string(reinterpret_cast<char *>(attr) - static_cast<const char *>(base)) +
           ",type=" + NAMES[blobmsg_type(attr)] + ",len=" + std::to_string(blobmsg_len(attr)) +
           ",val=" + take(blobmsg_format_json_value(attr));
}

TEST(BlobmsgVectors, ParseVerdicts)
{
    for_each_row("parse_cases", [](json_object *row) {
        std::vector<std::string> entries = texts(member(row, "policy"));
        std::vector<blobmsg_policy> policy;
        for (std::string &entry : entries) {
            size_t colon = entry.rfind(':');
            auto type = static_cast<enum blobmsg_type>(atoi(entry.c_str() + colon + 1));
            entry.resize(colon);
            policy.push_back({colon ? entry.c_str() : nullptr, type});
        }
        bytes data = from_hex(text_of(row, "payload_hex"));
        blob_attr junk;
        std::vector<blob_attr *> tb(policy.size(), &junk);
        auto parse =
            text_of(row, "function") == "blobmsg_parse" ? blobmsg_parse : blobmsg_parse_array;
        std::string result =
            std::to_string(parse(policy.data(), static_cast<int>(policy.size()), tb.data(),
                                 data.data(), static_cast<unsigned>(data.size())));
        for (blob_attr *attr : tb)
            result += describe(attr, data.data());
        EXPECT_EQ(result, text_of(row, "result"));
    });
}

TEST(BlobmsgVectors, CheckVerdicts)
{
    for_each_row("check_cases", [](json_object *row) {
        bytes data = from_hex(text_of(row, "attr_hex"));
        auto *attr = reinterpret_cast<blob_attr *>(data.data());
        std::string result =
            "noname=" + std::to_string(blobmsg_check_attr_len(attr, false, data.size())) +
            " name=" + std::to_string(blobmsg_check_attr_len(attr, true, data.size())) + " array=" +
            std::to_string(blobmsg_check_array_len(attr, BLOBMSG_TYPE_UNSPEC, data.size()));
        EXPECT_EQ(result, text_of(row, "result"));
    });
}
