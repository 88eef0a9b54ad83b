/*
 * The least that a daemon with tarn_net's libraries can be: it links the same ones, sets libcurl up with one multi
 * handle, connects to the bus, opens a UCI context and a netlink socket, and waits. daemon.whole measures it beside the
 * daemon.
 */
#include <curl/curl.h>
#include <json-c/json.h>
#include <libubox/uloop.h>
#include <libubus.h>
#include <netlink/genl/genl.h>
#include <openssl/evp.h>
#include <uci.h>

int main(void)
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
    if (!made)
        return 1;
    ubus_add_uloop(bus);
    uloop_run();
    return 0;
}
