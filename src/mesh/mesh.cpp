// The mesh interfaces netifd manages: "mesh_rp", through which the node is a client of the mesh,
// and the connections it makes to other networks while orphaned.
//
//   init_mesh_info ─ 5 s ─► ask every interface for its status ─ 5 s ─► over
#include "mesh/mesh.h"

#include <cstring>

#include "core/state.h"
#include "mesh/mesh_internal.h"
#include "platform/zu/log.h"
#include "wired/netifd_iface.h"

constexpr int ENUMERATE_MS = 5000;
constexpr char MESH_RP_PATH[] = "network.interface.mesh_rp";
constexpr char ORPHAN_PATH_PREFIX[] = "network.interface.orph_conn";

bool mesh_is_interface_path(const char *path)
{
    return strcmp(path, MESH_RP_PATH) == 0 ||
           strncmp(path, ORPHAN_PATH_PREFIX, sizeof ORPHAN_PATH_PREFIX - 1) == 0;
}

void enumerate_meshes_add_new(ubus_context *ctx, const char *path, uint32_t id)
{
    if (ctx == nullptr || path == nullptr) {
        log_error("%s is NULL", ctx == nullptr ? "ctx" : "obj_path");
        return;
    }
    list_head *list = &gTarn_net_state.mesh.list;
    const iface_entry *known = iface_list_find(list, path);
    if (known != nullptr && known->id == id)
        return;
    // A path is on the bus once: an entry with another id is an object that is gone.
    iface_list_free_iface(list, path);
    iface_entry *entry = iface_list_new_iface(ctx, path, id);
    if (entry == nullptr) {
        log_error("Failed to allocate memory for a new mesh listing");
        return;
    }
    list_add_tail(&entry->link, list);
}

static void enumerate_meshes_timeout_cb(uloop_timeout *)
{
    iface_entry *entry;
    list_for_each_entry(entry, &gTarn_net_state.mesh.list, link)
    {
        if (entry->parsed)
            continue;
        log_error("Mesh '%s' failed to respond to status, aborting ubus invoke", entry->obj_path);
        iface_list_abort_status(entry);
    }
}

static void refresh(ubus_context *ctx, iface_entry *entry)
{
    uint32_t id = 0;
    if (ubus_lookup_id(ctx, entry->obj_path, &id) != UBUS_STATUS_OK) {
        log_error("Failed to lookup package ID for interface '%s'", entry->obj_path);
        return;
    }
    if (!iface_list_call_status(ctx, entry, id))
        log_error("Failed to invoke status method for interface '%s'", entry->obj_path);
}

static void wait_to_enumerate_meshes_cb(uloop_timeout *timer)
{
    list_head *list = &gTarn_net_state.mesh.list;
    ubus_context *ctx = gUbus_ctx;
    if (ctx == nullptr) {
        log_error("%s is NULL", "ctx");
    } else if (list_empty(list)) {
        for (const bus_object &object : bus_lookup_objects(ctx, mesh_is_interface_path))
            enumerate_meshes_add_new(ctx, object.path.c_str(), object.id);
    } else {
        iface_entry *entry;
        list_for_each_entry(entry, list, link) refresh(ctx, entry);
    }
    timer->cb = enumerate_meshes_timeout_cb;
    uloop_timeout_set(timer, ENUMERATE_MS);
}

void init_mesh_info()
{
    mesh_state &mesh = gTarn_net_state.mesh;
    if (mesh.enumerate_timer.pending) {
        log_debug("There is an active enumerate/refresh timer, no need to refresh the info");
        return;
    }
    mesh.enumerate_timer.cb = wait_to_enumerate_meshes_cb;
    uloop_timeout_set(&mesh.enumerate_timer, ENUMERATE_MS);
    mesh_statistics_arm();
}

void mesh_reset()
{
    mesh_state &mesh = gTarn_net_state.mesh;
    uloop_timeout_cancel(&mesh.enumerate_timer);
    uloop_timeout_cancel(&mesh.lonely_timer);
    mesh_statistics_abandon();
    mesh_clear_gateway_info();
    iface_list_free_all(&mesh.list);
}
