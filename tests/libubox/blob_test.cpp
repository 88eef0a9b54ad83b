// Messages at their limits: of size when they are built, of depth when they are shown.
#include <cstdlib>
#include <gtest/gtest.h>
#include <libubox/blobmsg_json.h>
#include <string>

namespace {
struct Blob : testing::Test {
    blob_buf buf = {};
    Blob() { blobmsg_buf_init(&buf); }
    ~Blob() override { blob_buf_free(&buf); }
};
} // namespace

static std::string take(char *text)
{
    std::string copy = text ? text : "(null)";
    free(text);
    return copy;
}

TEST_F(Blob, AMessageStaysBelow16Mib)
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
    EXPECT_FALSE(blob_attr_equal(buf.head, nullptr));

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

TEST_F(Blob, AMessageNestedWithoutEndDoesNotExhaustTheStack)
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
