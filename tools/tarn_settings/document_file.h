// A settings document from a file: the JSON text of a parse_config message.
#pragma once

#include <string>

#include "platform/zu/blobmsg_util.h"

/// Reads a whole file, or standard input for "-". False with the reason in `error`.
bool read_whole(const std::string &path, std::string &text, std::string &error);

/// Fills `message` from a text that is one JSON object and no more than the bus carries. False with
/// the reason, and the place of a fault of the text, in `error`.
bool message_of_json(const std::string &text, blob_buf *message, std::string &error);
/// The same from a file (or "-").
bool read_message(const std::string &path, blob_buf *message, std::string &error);

/// The message's `params` table, or null.
blob_attr *params_of(blob_buf *message);
