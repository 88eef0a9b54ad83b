/*
 * The least that a daemon with tarn_net's libraries can be: it links the same ones, sets libcurl up with one multi
 * handle, connects to the bus, opens a UCI context and a netlink socket, and waits. daemon.whole measures it beside the
 * daemon.
 *
 * usage: floor URL INTERFACE    connects once as the internet test does, as libcurl and the TLS library keep what they
 *                               have set up for that
 */
#include <curl/curl.h>
#include <json-c/json.h>
#include <libubox/uloop.h>
#include <libubus.h>
#include <netlink/genl/genl.h>
#include <openssl/evp.h>
#include <uci.h>

static int connects(CURLM *multi, const char *url, const char *interface)
{
    CURL *easy = curl_easy_init();
    CURLMsg *message = NULL;
    int running = 1, queued = 0, connected;

    curl_easy_setopt(easy, CURLOPT_URL, url);
    curl_easy_setopt(easy, CURLOPT_INTERFACE, interface);
    curl_easy_setopt(easy, CURLOPT_CONNECT_ONLY, 1L);
    curl_multi_add_handle(multi, easy);
    while (curl_multi_perform(multi, &running) == CURLM_OK && running > 0)
        curl_multi_poll(multi, NULL, 0, 1000, NULL);
    message = curl_multi_info_read(multi, &queued);
    connected = message && message->data.result == CURLE_OK;
    curl_multi_remove_handle(multi, easy);
    curl_easy_cleanup(easy);
    return connected;
}

int main(int argc, char **argv)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    struct json_object *empty = json_object_new_object();
    struct nl_sock *netlink = nl_socket_alloc();
    struct uci_context *uci = uci_alloc_context();
    struct ubus_context *bus;
    CURLM *multi;
    int made;

    uloop_init();
    bus = ubus_connect(NULL);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    multi = curl_multi_init();
    made = empty && netlink && genl_connect(netlink) == 0 && uci && bus && multi &&
           EVP_Digest("", 0, digest, NULL, EVP_md5(), NULL) == 1;
    if (!made || (argc == 3 && !connects(multi, argv[1], argv[2])))
        return 1;
    ubus_add_uloop(bus);
    uloop_run();
    return 0;
}
