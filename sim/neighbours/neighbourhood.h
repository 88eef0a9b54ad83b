// The access points around the simulated node, from a file that a person can edit. One a line:
//
//   BSSID BAND CHANNEL SIGNAL SECURITY MODE WIDTH SSID
//   02:5e:00:00:01:03 5GHz 36 -68.2 wpa2 vht 80 Corner Cafe
//
// BAND 2.4GHz, 5GHz or 6GHz; SIGNAL in dBm; SECURITY open, wep, wpa, wpa2, wpa3, or one of the last
// two with -eap; MODE legacy, ht, vht or he; WIDTH 20, 40, 80, 160 or 80+80 in MHz. The SSID is the
// rest of the line, `\xNN` in it a byte; without one the network hides its name. What follows a '#'
// in the first column is for the reader.
#pragma once

#include <string>
#include <vector>

struct neighbour_ap {
    std::string bssid, band, security, mode, width, ssid;
    int channel;
    double dbm;
};

/// The file's access points; a line that does not describe one is reported on standard error and
/// left out.
std::vector<neighbour_ap> neighbourhood_read(const char *path);
/// Every 20 MHz channel that `width` takes around the access point's own.
std::vector<int> neighbourhood_channels(const neighbour_ap &ap, const std::string &width);
