// Derived at run time, never stored beyond the interface it is for. Both ends know the BSSID.
#include "wifi/write/orphan_key.h"

#include <cctype>
#include <cstdio>
#include <openssl/evp.h>

#include "platform/zu/log.h"

constexpr size_t BSSID_MAX = 19;
constexpr int ROUNDS = 11;

/// The MD5 digest of the text in hex; empty when it cannot be taken.
static std::string md5_hex(const std::string &text)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr) != 1)
        return {};
    std::string hex;
    for (unsigned i = 0; i < length; i++) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02hhx", digest[i]);
        hex += digits;
    }
    return hex;
}

int wifi_generate_orphan_key(const char *bssid, std::string *key)
{
    if (!bssid || !key) {
        log_error("%s is NULL", bssid ? "key" : "bssid");
        return -1;
    }
    std::string text = std::string(bssid).substr(0, BSSID_MAX);
    for (char &c : text)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    for (int i = 0; i < 1 + ROUNDS && (i == 0 || !text.empty()); i++)
        text = md5_hex(text);
    if (text.empty()) {
        log_error("Failed to derive the orphan network's key");
        return -1;
    }
    *key = text;
    return 0;
}
