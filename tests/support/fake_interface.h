// An interface of netifd that does what a test says.
#pragma once

#include "support/bus_fixture.h"
#include "support/fake_object.h"

/// An object of netifd: answers "status" with what the test says ("": without data), at once or
/// when the test says so.
struct fake_interface : fake_object {
    std::string status;
    bool answers = true;
    int asked = 0;
    ubus_request_data open; ///< the last call that has not been answered

    fake_interface(ubus_context *ctx, const std::string &object_path, const std::string &json)
        : fake_object(ctx, object_path, {"status", "up", "down"}), status(json)
    {
    }
    void answer_open()
    {
        ubus_send_reply(bus, &open, json_message(status).head);
        ubus_complete_deferred_request(bus, &open, 0);
    }
    void notify(const std::string &json)
    {
        ubus_notify(bus, this, "interface.update", json_message(json).head, -1);
    }
    int on_call(ubus_request_data *request, const std::string &method) override
    {
        if (method != "status")
            return 0;
        asked++;
        if (!answers)
            ubus_defer_request(bus, request, &open);
        else if (!status.empty())
            ubus_send_reply(bus, request, json_message(status).head);
        return 0;
    }
};
