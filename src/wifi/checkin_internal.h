// What the files of the check-in share: putting values by their rows. What cannot be added is said
// at INFO and left out.
#pragma once

#include <string>

#include "netlink/nl80211.h"
#include "wifi/checkin_rows.h"

void checkin_put_bool(blob_buf *buf, const checkin_row &row, bool value);
void checkin_put_int(blob_buf *buf, const checkin_row &row, int value);
void checkin_put_long(blob_buf *buf, const checkin_row &row, uint64_t value);
void checkin_put_number(blob_buf *buf, const checkin_row &row, double value);
void checkin_put_text(blob_buf *buf, const checkin_row &row, const char *value);
/// Says that something of `row` could not be added.
void checkin_not_added(const checkin_row &row);

/// Opens the row's table or array and lets `fill` put what is in it.
template <typename Fill>
void checkin_put_nested(blob_buf *buf, const checkin_row &row, Fill fill)
{
    const bool is_table = row.kind == CHECKIN_TABLE;
    void *nested = is_table ? blobmsg_open_table(buf, row.key) : blobmsg_open_array(buf, row.key);
    if (!nested) {
        checkin_not_added(row);
        return;
    }
    fill();
    blobmsg_close_table(buf, nested);
}

/// One table of the array that is open.
template <typename Fill>
void checkin_put_element(blob_buf *buf, const checkin_row &row, Fill fill)
{
    void *table = blobmsg_open_table(buf, nullptr);
    if (!table) {
        checkin_not_added(row);
        return;
    }
    fill();
    blobmsg_close_table(buf, table);
}

// The radios (checkin_radios.cpp)

/// Adds the radios and who is heard over them. With `report` a channel that radar made a radio
/// leave is sent as an event, once.
void checkin_add_radios(blob_buf *buf, bool report);
