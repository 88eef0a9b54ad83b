// One BSS as u80211d tells it, and the record that is made of it: nothing here knows requests or
// timers.
#pragma once

#include <libubus.h>
#include <string>

/// Longest text that is taken from a BSS entry, in bytes.
constexpr unsigned SCAN_TEXT_MAX = 128;

/// Makes the scan-result record of one BSS entry in `record`, which is begun anew. 0, or -1
/// (logged) when the entry has to be dropped. Whatever the entry holds, the record's texts are
/// valid UTF-8 without control characters and its number is finite.
[[nodiscard]] int wifi_scan_parse_copy_bss_result(blob_attr *bss, const char *ifname,
                                                  blob_buf *record);

/// Text from the air as JSON can carry it: a control character and a byte that is not part of valid
/// UTF-8 become `\xNN`, and so does a backslash before an x. Undone by replacing every `\xNN`.
std::string wifi_scan_text(const char *bytes, size_t length);
