// libcurl's multi interface on the event loop: transfers run from loop callbacks, none blocks.
#pragma once

#include <curl/curl.h>
#include <libubox/list.h>
#include <libubox/uloop.h>

struct uloop_curl_easy;

/// One multi handle with its loop timer and the transfers it drives.
struct uloop_curl_context {
    CURLM *multi;
    uloop_timeout timer;
    list_head sockets; ///< private: one loop descriptor per socket libcurl watches
    list_head easies;  ///< private: started transfers
};

/// Called once when a transfer ends. `easy->result` holds libcurl's code, 42
/// (CURLE_ABORTED_BY_CALLBACK) after an abort. It may abort, destroy or start any transfer, its own
/// included.
using uloop_curl_cb = void (*)(uloop_curl_easy *easy);

/// One transfer, zero-initialised by its owner.
struct uloop_curl_easy {
    CURL *easy; ///< null when no transfer is open
    uloop_curl_cb cb;
    CURLcode result;
    uloop_curl_context *context; ///< private
    list_head list;              ///< private: in context->easies once started
    bool started;                ///< private
};

/// Prepares a zeroed context. 0 or -1.
int uloop_curl_init(uloop_curl_context *context);
/// Aborts what runs and releases the multi handle.
void uloop_curl_cleanup(uloop_curl_context *context);
/// Makes the easy handle. 0 or -1.
int uloop_curl_easy_create(uloop_curl_context *context, uloop_curl_easy *easy);
/// Hands the transfer to the loop; the callback never runs from inside this call. 0 or -1.
int uloop_curl_easy_start(uloop_curl_easy *easy);
/// Ends a started transfer now: its callback reports 42 before this returns. Nothing when idle.
void uloop_curl_easy_abort(uloop_curl_easy *easy);
/// Releases the handle (removing it from the loop first); `easy->easy` is null afterwards.
void uloop_curl_easy_destroy(uloop_curl_easy *easy);
