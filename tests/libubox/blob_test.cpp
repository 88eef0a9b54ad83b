// Building messages: growth and its limit, nesting, strings in place; and the formatter's handling
// of what is replaced, malformed or too deep.
#include <libubox/blobmsg_json.h>

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {
struct blob : testing::Test {
    blob_buf buf = {};
    blob() { blobmsg_buf_init(&buf); }
    ~blob() override { blob_buf_free(&buf); }
};
} // namespace

static std::string take(char *text)
{
    std::string copy = text ? text : "(null)";
    free(text);
    return copy;
}

TEST_F(blob, grows_in_steps_of_256_and_can_be_used_again)
{
    EXPECT_EQ(buf.buflen, 256);
    std::string text(240, 'x');
    ASSERT_EQ(blobmsg_add_string(&buf, "a", text.c_str()), 0); // 4 + 4 + 4 + 241: up to 256
    EXPECT_EQ(buf.buflen, 256);
    ASSERT_EQ(blobmsg_add_u8(&buf, "b", 1), 0);
    EXPECT_EQ(buf.buflen, 512);

    // Neither the old content nor its length shines through in what comes after.
    blobmsg_buf_init(&buf);
    EXPECT_EQ(buf.buflen, 512);
    blobmsg_add_u8(&buf, "", 7);
    static constexpr uint8_t EXPECTED[] = {2, 0, 0, 16, 0x87, 0, 0, 9, 0, 0, 0, 0, 7, 0, 0, 0};
    ASSERT_EQ(blob_raw_len(buf.head), sizeof(EXPECTED));
    EXPECT_EQ(memcmp(buf.head, EXPECTED, sizeof(EXPECTED)), 0);

    blob_buf_free(&buf);
    EXPECT_EQ(buf.buf, nullptr);
    EXPECT_EQ(blobmsg_buf_init(&buf), 0);
    EXPECT_EQ(take(blobmsg_format_json(buf.head, true)), "{}");
}

TEST_F(blob, nest_cookies_survive_growth)
{
    std::vector<void *> open;
    std::string expected, end;
    for (int depth = 0; depth < 300; depth++) {
        const bool array = depth % 2;
        open.push_back(blobmsg_open_nested(&buf, "level", array));
        blobmsg_add_u32(&buf, "n", static_cast<uint32_t>(depth));
        expected += (array || !depth ? "\"level\":" : "") + std::string(array ? "[" : "{\"n\":") +
                    std::to_string(depth) + ",";
        end.insert(0, array ? "]" : "}");
    }
    blobmsg_add_u8(&buf, "end", 1);
    for (; !open.empty(); open.pop_back())
        blob_nest_end(&buf, open.back());
    blobmsg_add_u8(&buf, "after", 0);
    EXPECT_EQ(take(blobmsg_format_json(buf.head, true)),
              "{" + expected + "true" + end + ",\"after\":false}");
}

TEST_F(blob, a_message_stays_below_16_mib)
{
    std::string chunk(0xfff0, 'x');
    int added = 0;
    while (blobmsg_add_string(&buf, "c", chunk.c_str()) == 0)
        added++;
    EXPECT_EQ(added, 256);
    size_t before = blob_raw_len(buf.head);
    EXPECT_FALSE(blob_buf_grow(&buf, 0xfffff));
    EXPECT_EQ(blobmsg_open_table(&buf, chunk.c_str()), nullptr);
    EXPECT_EQ(blobmsg_alloc_string_buffer(&buf, "s", 0xffffffff), nullptr);
    EXPECT_EQ(blobmsg_add_field(&buf, BLOBMSG_TYPE_STRING, "s", nullptr, 0xffffffff), -1);
    EXPECT_EQ(blobmsg_add_u8(&buf, std::string(0x10000, 'n').c_str(), 1), -1);
    EXPECT_EQ(blob_raw_len(buf.head), before);

    // The last bytes may be used to the very end, and the length word never overflows.
    while (blobmsg_add_u8(&buf, "", 1) == 0) {
    }
    EXPECT_GT(blob_raw_len(buf.head), 0xffff00u);
    EXPECT_EQ(blobmsg_check_array(buf.head, BLOBMSG_TYPE_UNSPEC), -1); // a table: empty names
    EXPECT_FALSE(blobmsg_add_json_from_string(&buf, "{\"t\":{\"u\":[1,2,3]}}"));
    size_t rem, count = 0;
    blob_attr *pos;
    blobmsg_for_each_attr(pos, buf.head, rem) count += blobmsg_type(pos) == BLOBMSG_TYPE_STRING;
    EXPECT_EQ(count, 256u);
    EXPECT_EQ(rem, 0u);
}

TEST_F(blob, a_name_is_compared_to_its_end)
{
    blobmsg_add_u8(&buf, "axb", 1);
    auto *attr = static_cast<blob_attr *>(blob_data(buf.head));
    const_cast<char *>(blobmsg_name(attr))[1] = '\0';
    ASSERT_TRUE(blobmsg_check_attr(attr, true));
    static constexpr blobmsg_policy POLICY[] = {{"a", BLOBMSG_TYPE_BOOL}};
    blob_attr *tb[1];
    EXPECT_EQ(blobmsg_parse_attr(POLICY, 1, tb, buf.head), 0);
    EXPECT_EQ(tb[0], nullptr);
}

TEST_F(blob, strings_in_place_keep_their_text_while_they_grow)
{
    auto *text = static_cast<char *>(blobmsg_alloc_string_buffer(&buf, "s", 3));
    strcpy(text, "abc");
    text = static_cast<char *>(blobmsg_realloc_string_buffer(&buf, 5000));
    EXPECT_STREQ(text, "abc");
    memset(text + 3, 'd', 4997);
    text[5000] = '\0';
    blobmsg_add_string_buffer(&buf);
    EXPECT_EQ(blobmsg_printf(&buf, "empty", "%s", ""), 0);
    EXPECT_EQ(take(blobmsg_format_json(buf.head, true)),
              "{\"s\":\"abc" + std::string(4997, 'd') + "\",\"empty\":\"\"}");
}

TEST_F(blob, json_of_one_element_and_with_replaced_values)
{
    blobmsg_add_json_from_string(&buf, "{\"key\":{\"secret\":\"x\",\"n\":1}}");
    auto *key = static_cast<blob_attr *>(blob_data(buf.head));
    EXPECT_EQ(take(blobmsg_format_json(key, false)), "\"key\":{\"secret\":\"x\",\"n\":1}");
    EXPECT_EQ(take(blobmsg_format_json(key, true)), "{\"secret\":\"x\",\"n\":1}");
    EXPECT_EQ(take(blobmsg_format_json_value_indent(key, 1)),
              "{\n\t\t\"secret\": \"x\",\n\t\t\"n\": 1\n\t}");

    auto hide = [](void *priv, blob_attr *attr) -> const char * {
        return strcmp(blobmsg_name(attr), static_cast<char *>(priv)) == 0 ? "<hidden>" : nullptr;
    };
    char secret[] = "secret", table[] = "key";
    EXPECT_EQ(take(blobmsg_format_json_with_cb(buf.head, true, hide, secret, -1)),
              "{\"key\":{\"secret\":<hidden>,\"n\":1}}");
    EXPECT_EQ(take(blobmsg_format_json_with_cb(buf.head, true, hide, table, -1)),
              "{\"key\":<hidden>}");

    key->id_len |= cpu_to_be32(0x7f000000);
    EXPECT_EQ(take(blobmsg_format_json(key, false)), "(null)");
}

TEST_F(blob, a_message_nested_without_end_does_not_exhaust_the_stack)
{
    // 1 MiB of arrays in arrays, as a hostile peer could send them.
    for (int depth = 0; depth < 100000; depth++)
        blobmsg_open_array(&buf, "");
    for (auto *pos = static_cast<char *>(buf.buf); pos < reinterpret_cast<char *>(buf.head);
         pos += pos == buf.buf ? 4 : 8) {
        auto rest = reinterpret_cast<char *>(buf.head) + 8 - pos;
        blob_set_raw_len(reinterpret_cast<blob_attr *>(pos), static_cast<unsigned>(rest));
    }
    auto *root = static_cast<blob_attr *>(buf.buf);
    ASSERT_TRUE(blobmsg_check_attr_list(root, BLOBMSG_TYPE_UNSPEC) ||
                blobmsg_check_attr(root, false));
    std::string text = take(blobmsg_format_json(root, true));
    EXPECT_EQ(text.substr(0, 4), "{[[[");
    EXPECT_EQ(text.substr(text.size() - 4), "]]]}");
    EXPECT_LT(text.size(), 10000u);
}
