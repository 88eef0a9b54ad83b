// libcurl's multi interface on the event loop: transfers run from loop callbacks, none blocks.
//
// Everything here may be called from a transfer's callback, for its own transfer and any other.
// What a transfer opens is close-on-exec, uses http or https only, no proxy and no signals.
#pragma once

#include <curl/curl.h>
#include <libubus.h>

struct uloop_curl_easy;

/// One multi handle with its loop timer and the transfers it drives. Its memory must stay where it
/// is while it is in use: the loop holds pointers into it.
struct uloop_curl_context {
    CURLM *multi; ///< null: not in use
    uloop_timeout timer;
    list_head sockets; ///< private: one loop descriptor per socket libcurl watches
    list_head easies;  ///< private: started transfers
    bool closing;      ///< private
};

/// Called once when a transfer ends. `easy->result` holds libcurl's code, 42
/// (CURLE_ABORTED_BY_CALLBACK) after an abort, 7 (CURLE_COULDNT_CONNECT) also when the loop could
/// not watch its socket. It may abort, destroy or start any transfer, its own
/// included. The connection of a CONNECT_ONLY transfer is closed before it is called.
using uloop_curl_cb = void (*)(uloop_curl_easy *easy);

/// One transfer, zero-initialised by its owner, who also frees it: not before it has ended or was
/// destroyed.
struct uloop_curl_easy {
    CURL *easy; ///< null when no transfer is open
    uloop_curl_cb cb;
    CURLcode result;
    uloop_curl_context *context; ///< private
    list_head list;              ///< private: in context->easies once started
    bool started;                ///< in flight: its callback is still to come
    bool unwatched;              ///< private: the loop could not watch a socket of it
};

/// Makes a context ready. A zeroed one is set up; one in use is cleaned up first, as by
/// uloop_curl_cleanup(). To zero a context in use without that cleanup is an error of the owner:
/// the loop and libcurl would keep pointing into it. 0; or -1 (logged), the context then zero.
[[nodiscard]] int uloop_curl_init(uloop_curl_context *context);
/// Aborts what runs (each callback reports 42 and can start nothing new on this context), releases
/// the multi handle and leaves the context zero. Nothing when it is zero already. Transfers that
/// are not started stay their owners' to destroy.
void uloop_curl_cleanup(uloop_curl_context *context);
/// Makes the easy handle for a record that holds none. 0; or -1 (logged), `easy->easy` then null.
[[nodiscard]] int uloop_curl_easy_create(uloop_curl_context *context, uloop_curl_easy *easy);
/// Hands the transfer to the loop; the callback never runs from inside this call. 0; or -1
/// (logged), the callback then never runs.
int uloop_curl_easy_start(uloop_curl_easy *easy);
/// Ends a started transfer now: its callback reports 42 before this returns. Nothing when it is not
/// started or has ended.
void uloop_curl_easy_abort(uloop_curl_easy *easy);
/// Releases the handle, ending the transfer without its callback; `easy->easy` is null afterwards.
void uloop_curl_easy_destroy(uloop_curl_easy *easy);

/// True for a libcurl that was built without its error texts: curl_easy_strerror() says the same of
/// every failure.
bool uloop_curl_lacks_error_texts();

/// What `code` means, in libcurl's words or, where it has none, in ours. Never null.
const char *uloop_curl_error_text(CURLcode code);
