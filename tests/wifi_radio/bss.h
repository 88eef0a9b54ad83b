// BSS entries as u80211d tells them, made from JSON text.
#pragma once

#include <string>

#include "support/bus_fixture.h"

/// The members of a message made from JSON, those that u80211d sends as 16 bits narrowed.
struct bss_message : blob_buffer {
    explicit bss_message(const std::string &json)
    {
        const json_message wide(json);
        blob_buf_init(this, 0);
        blob_attr *member;
        size_t rest;
        blobmsg_for_each_attr(member, wide.head, rest)
        {
            const std::string name = blobmsg_name(member);
            if ((name == "crypto" || name == "wpa_version") &&
                blobmsg_type(member) == BLOBMSG_TYPE_INT32)
                blobmsg_add_u16(this, name.c_str(), static_cast<uint16_t>(blobmsg_get_u32(member)));
            else
                blobmsg_add_blob(this, member);
        }
    }
    /// The message as an element of an array.
    void add_to(blob_buf *list) const
    {
        blobmsg_add_field(list, BLOBMSG_TYPE_TABLE, nullptr, blob_data(head),
                          static_cast<unsigned>(blob_len(head)));
    }
};
