// Reading the file, and the channels that an access point takes; see neighbourhood.h.
#include "neighbourhood.h"

#include <cstdio>
#include <fstream>
#include <sstream>

/// `\xNN` becomes the byte NN.
static std::string unescaped(const std::string &text)
{
    std::string bytes;
    for (size_t i = 0; i < text.size(); i++) {
        unsigned byte = 0;
        if (sscanf(text.c_str() + i, "\\x%2x", &byte) == 1) {
            bytes += static_cast<char>(byte);
            i += 3;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

static bool read_line(const std::string &line, neighbour_ap *ap)
{
    std::istringstream words(line);
    if (!(words >> ap->bssid >> ap->band >> ap->channel >> ap->dbm >> ap->security >> ap->mode >>
          ap->width))
        return false;
    std::getline(words >> std::ws, ap->ssid);
    ap->ssid = unescaped(ap->ssid);
    return true;
}

/// The lowest channel of the block of `count` channels that the channel is in.
static int block_start(const neighbour_ap &ap, int count)
{
    int first = 1; // 6 GHz
    if (ap.band == "5GHz")
        first = ap.channel >= 149 ? 149 : ap.channel >= 100 ? 100 : 36;
    const int span = 4 * count;
    return first + (ap.channel - first) / span * span;
}

std::vector<neighbour_ap> neighbourhood_read(const char *path)
{
    std::vector<neighbour_ap> all;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        neighbour_ap ap;
        if (line.empty() || line[0] == '#')
            continue;
        if (read_line(line, &ap))
            all.push_back(ap);
        else
            fprintf(stderr, "%s: not an access point: %s\n", path, line.c_str());
    }
    return all;
}

std::vector<int> neighbourhood_channels(const neighbour_ap &ap, const std::string &width)
{
    const int count = width == "80+80" ? 4 : std::stoi(width) / 20;
    if (ap.band == "2.4GHz")
        return count == 1 ? std::vector{ap.channel}
                          : std::vector{ap.channel, ap.channel + (ap.channel < 8 ? 4 : -4)};
    std::vector<int> channels;
    for (int i = 0; i < count; i++)
        channels.push_back(block_start(ap, count) + 4 * i);
    if (width == "80+80") // its other half
        for (int i = 0; i < count; i++)
            channels.push_back((channels[0] == 149 ? 36 : 149) + 4 * i);
    return channels;
}
