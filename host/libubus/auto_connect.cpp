// A connection that comes back by itself: tried now, and again 1000 ms after each failure or loss,
// without limit. Only the first connection calls conn->cb; later ones publish the known objects
// again and nothing else.
#include <cstdio>

#include "libubus_internal.h"

constexpr int RETRY_MS = 1000;

static void reconnect_timer_cb(uloop_timeout *timer)
{
    auto *conn = container_of(timer, ubus_auto_conn, timer);
    if (ubus_reconnect(&conn->ctx, conn->path) == UBUS_STATUS_CONNECTION_FAILED)
        uloop_timeout_set(timer, RETRY_MS);
    else
        ubus_add_uloop(&conn->ctx);
}

static void auto_connection_lost(ubus_context *ctx)
{
    auto *conn = container_of(ctx, ubus_auto_conn, ctx);
    conn->timer.cb = reconnect_timer_cb;
    uloop_timeout_set(&conn->timer, RETRY_MS);
}

static void first_connect_cb(uloop_timeout *timer)
{
    auto *conn = container_of(timer, ubus_auto_conn, timer);
    if (ubus_connect_ctx(&conn->ctx, conn->path) != 0) {
        fprintf(stderr, "failed to connect to ubus\n");
        uloop_timeout_set(timer, RETRY_MS);
        return;
    }
    conn->ctx.connection_lost = auto_connection_lost;
    if (conn->cb)
        conn->cb(&conn->ctx);
    ubus_add_uloop(&conn->ctx);
}

void ubus_auto_connect(ubus_auto_conn *conn)
{
    conn->timer.cb = first_connect_cb;
    first_connect_cb(&conn->timer);
}

void ubus_auto_shutdown(ubus_auto_conn *conn)
{
    (void)uloop_timeout_cancel(&conn->timer);
    ubus_shutdown(&conn->ctx);
}
