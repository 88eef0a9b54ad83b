// Blobmsg helpers against whole, malformed and deeply nested messages.
#include <cstring>
#include <string>
#include <vector>

#include "support/json_message.h"

namespace {

/// A message of `depth` tables, or arrays, in one another.
struct nested_message : blob_buffer {
    explicit nested_message(int depth, bool array = false)
    {
        blob_buf_init(this, 0);
        std::vector<void *> cookies;
        for (int i = 0; i < depth; i++)
            cookies.push_back(blobmsg_open_nested(this, "t", array));
        for (; !cookies.empty(); cookies.pop_back())
            blob_nest_end(this, cookies.back());
    }
};

TEST(BlobmsgUtil, TextOfMessagesAndAttributes)
{
    const std::string json = R"({"a":1,"s":"x\"y","t":{"l":[true,null,"z"]},"e":{}})";
    json_message m(json);
    EXPECT_EQ(std::string(zu_blobmsg_json(m.head, true).get()), json);
    blob_attr *first = static_cast<blob_attr *>(blobmsg_data(m.head));
    EXPECT_EQ(std::string(zu_blobmsg_json(first, false).get()), "\"a\":1");
    EXPECT_EQ(zu_blobmsg_json(nullptr, true), nullptr);
}

TEST(BlobmsgUtil, NestingIsLimited)
{
    for (const bool array : {false, true}) {
        for (const int depth : {0, 1, ZU_BLOBMSG_DEPTH_MAX})
            EXPECT_TRUE(zu_blobmsg_valid(nested_message(depth, array).head)) << depth;
        for (const int depth : {ZU_BLOBMSG_DEPTH_MAX + 1, 100000}) {
            nested_message m(depth, array);
            EXPECT_FALSE(zu_blobmsg_valid(m.head)) << depth;
            EXPECT_EQ(zu_blobmsg_json(m.head, true), nullptr);
        }
    }
}

TEST(BlobmsgUtil, ADamagedMemberIsFoundAtAnyLevel)
{
    json_message whole(R"({"a":"text","t":{"n":5,"l":["x","y"]}})");
    const std::size_t size = blob_pad_len(whole.head);
    // Any byte damaged in any bit: the answer may be either, but must not read outside, and what is
    // called valid must come out as text.
    for (std::size_t i = 4; i < size; i++) {
        for (int bit = 0; bit < 8; bit++) {
            std::vector<char> copy(size);
            memcpy(copy.data(), whole.head, size);
            copy[i] = static_cast<char>(copy[i] ^ (1 << bit));
            auto *attr = reinterpret_cast<blob_attr *>(copy.data());
            EXPECT_EQ(zu_blobmsg_valid(attr), zu_blobmsg_json(attr, true) != nullptr);
        }
    }
    const auto damaged = [&](const char *needle, int offset, char value) {
        std::vector<char> copy(size);
        memcpy(copy.data(), whole.head, size);
        const std::string_view bytes(copy.data(), size);
        copy[bytes.find(needle) + static_cast<std::size_t>(offset)] = value;
        return zu_blobmsg_valid(reinterpret_cast<blob_attr *>(copy.data()));
    };
    EXPECT_TRUE(damaged("text", 0, 'T'));
    EXPECT_FALSE(damaged("text", 4, 'x')); // no final NUL
    EXPECT_FALSE(damaged("text", -5, 99)); // length past the end
    EXPECT_FALSE(damaged("text", -5, 0));  // length 0 ends the walk early
}

TEST(BlobmsgUtil, CopyingAddsEveryMember)
{
    json_message source(R"({"b":2,"t":{"x":[1]}})");
    json_message target(R"({"a":1})");
    EXPECT_EQ(zu_blobmsg_copy(&target, source.head), 0);
    EXPECT_EQ(std::string(zu_blobmsg_json(target.head, true).get()),
              R"({"a":1,"b":2,"t":{"x":[1]}})");
    // 64 times 512 KiB do not fit into one message.
    json_message large("{\"s\":\"" + std::string(512 * 1024, 'x') + "\"}");
    int result = 0;
    for (int i = 0; i < 64 && result == 0; i++)
        result = zu_blobmsg_copy(&target, large.head);
    EXPECT_EQ(result, -1);
}

} // namespace
