#pragma once

#include <libubus.h>
#include <string>
#include <vector>

#include "support/json_message.h"

/// An object on the bus with three methods; what a call comes to is its heir's.
struct fake_object : ubus_object {
    std::string path;
    ubus_context *bus;
    std::vector<std::string> called; ///< "method {arguments}"
    ubus_method methods_[3] = {};

    fake_object(ubus_context *ctx, const std::string &object_path, const char *const (&names)[3])
        : ubus_object{}, path(object_path), bus(ctx)
    {
        for (int i = 0; i < 3; i++) {
            methods_[i].name = names[i];
            methods_[i].handler = handle;
        }
        type_ = {path.c_str(), 0, methods_, 3};
        name = path.c_str();
        type = &type_;
        methods = methods_;
        n_methods = 3;
        EXPECT_EQ(ubus_add_object(bus, this), 0) << path;
    }
    virtual ~fake_object() { leave(); }
    fake_object(const fake_object &) = delete;
    fake_object &operator=(const fake_object &) = delete;
    void leave()
    {
        if (id != 0)
            ubus_remove_object(bus, this);
    }
    /// Answers or defers; a bus status.
    virtual int on_call(ubus_request_data *request, const std::string &method) = 0;

private:
    ubus_object_type type_ = {};

    static int handle(ubus_context *, ubus_object *self, ubus_request_data *request,
                      const char *method, blob_attr *msg)
    {
        auto *object = static_cast<fake_object *>(self);
        object->called.push_back(std::string(method) + " " + zu_blobmsg_json(msg, true).get());
        return object->on_call(request, method);
    }
};
