#pragma once

#include "support/bus_fixture.h"

/// An object of netifd: answers "status" with what the test says ("": without data), at once or
/// when the test says so.
struct fake_interface : ubus_object {
    std::string path, status;
    bool answers = true;
    int asked = 0;
    ubus_context *bus;
    ubus_method methods_[3] = {};
    ubus_object_type type_ = {};
    std::vector<std::string> called;
    ubus_request_data open; ///< the last call that has not been answered

    fake_interface(ubus_context *ctx, const std::string &object_path, const std::string &json)
        : ubus_object{}, path(object_path), status(json), bus(ctx)
    {
        for (int i = 0; i < 3; i++)
            methods_[i] = {.name = (const char *[]){"status", "up", "down"}[i],
                           .handler = call,
                           .mask = 0,
                           .tags = 0,
                           .policy = nullptr,
                           .n_policy = 0};
        type_ = {path.c_str(), 0, methods_, 3};
        name = path.c_str();
        type = &type_;
        methods = methods_;
        n_methods = 3;
        EXPECT_EQ(ubus_add_object(bus, this), 0) << path;
    }
    ~fake_interface() { leave(); }
    fake_interface(const fake_interface &) = delete;
    fake_interface &operator=(const fake_interface &) = delete;
    void leave()
    {
        if (id != 0)
            ubus_remove_object(bus, this);
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

private:
    static int call(ubus_context *ctx, ubus_object *self, ubus_request_data *req,
                    const char *method, blob_attr *msg)
    {
        auto *iface = static_cast<fake_interface *>(self);
        iface->called.push_back(std::string(method) + " " + zu_blobmsg_json(msg, true).get());
        if (strcmp(method, "status") != 0)
            return 0;
        iface->asked++;
        if (!iface->answers) {
            ubus_defer_request(ctx, req, &iface->open);
            return 0;
        }
        if (!iface->status.empty())
            ubus_send_reply(ctx, req, json_message(iface->status).head);
        return 0;
    }
};
