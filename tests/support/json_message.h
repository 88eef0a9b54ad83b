// Messages made from JSON text.
#pragma once

#include <gtest/gtest.h>
#include <string>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "platform/zu/blobmsg_util.h"

/// A message made from JSON text.
struct json_message : blob_buffer {
    explicit json_message(const std::string &json = "{}")
    {
        blobmsg_buf_init(this);
        if (!blobmsg_add_json_from_string(this, json.c_str()))
            ADD_FAILURE() << "not JSON: " << json.substr(0, 80);
    }
};
