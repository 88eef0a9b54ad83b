// What a transfer's result means, where libcurl does not know: built without its texts to save
// flash, it says "Error" of everything.
#include <cstring>

#include "platform/zu/uloop_curl.h"

struct error_text {
    CURLcode code;
    const char *text;
};

/// The ways in which connecting fails.
constexpr error_text ERROR_TEXTS[] = {
    {CURLE_UNSUPPORTED_PROTOCOL, "no protocol of this libcurl"},
    {CURLE_FAILED_INIT, "libcurl could not start"},
    {CURLE_URL_MALFORMAT, "not an address"},
    {CURLE_NOT_BUILT_IN, "not built into this libcurl"},
    {CURLE_COULDNT_RESOLVE_HOST, "the name was not found"},
    {CURLE_COULDNT_CONNECT, "could not connect"},
    {CURLE_OUT_OF_MEMORY, "no memory"},
    {CURLE_OPERATION_TIMEDOUT, "took too long"},
    {CURLE_SSL_CONNECT_ERROR, "the TLS handshake failed"},
    {CURLE_ABORTED_BY_CALLBACK, "aborted"},
    {CURLE_INTERFACE_FAILED, "could not use the interface"},
    {CURLE_GOT_NOTHING, "closed without an answer"},
    {CURLE_SEND_ERROR, "could not send"},
    {CURLE_RECV_ERROR, "could not receive"},
    {CURLE_PEER_FAILED_VERIFICATION, "the certificate is not trusted"},
    {CURLE_SSL_CACERT_BADFILE, "the file of trusted certificates cannot be read"},
};

bool uloop_curl_lacks_error_texts()
{
    return strcmp(curl_easy_strerror(CURLE_COULDNT_CONNECT),
                  curl_easy_strerror(CURLE_OPERATION_TIMEDOUT)) == 0;
}

const char *uloop_curl_error_text(CURLcode code)
{
    if (!uloop_curl_lacks_error_texts())
        return curl_easy_strerror(code);
    for (const error_text &known : ERROR_TEXTS)
        if (known.code == code)
            return known.text;
    return "failed";
}
