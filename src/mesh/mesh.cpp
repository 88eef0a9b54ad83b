// The mesh interfaces netifd manages: "mesh_rp", through which the node is a client of the mesh,
// and the connections it makes to other networks while orphaned.
#include "mesh/mesh.h"

#include <cstring>

#include "mesh/mesh_internal.h"
#include "platform/zu/log.h"
#include "state/owned.h"
#include "wired/netifd/enumeration.h"

constexpr char MESH_RP_PATH[] = "network.interface.mesh_rp";
constexpr char ORPHAN_PATH_PREFIX[] = "network.interface.orph_conn";

bool mesh_is_interface_path(const char *path)
{
    return strcmp(path, MESH_RP_PATH) == 0 ||
           strncmp(path, ORPHAN_PATH_PREFIX, sizeof ORPHAN_PATH_PREFIX - 1) == 0;
}

static bool any_is_known()
{
    return !list_empty(&gTarn_net_state.mesh.list);
}

static void log_lookup_failure(const char *path)
{
    log_error("Failed to lookup package ID for interface '%s'", path);
}

constexpr iface_kind MESH = {
    .wanted = mesh_is_interface_path,
    .is_known = any_is_known,
    .ends_when_answered = false,
    .on_change = nullptr,
    .noun = "Mesh",
    .add_failure = "Failed to allocate memory for a new mesh listing",
    .log_lookup_failure = log_lookup_failure,
};

void enumerate_meshes_add_new(ubus_context *ctx, const char *path, uint32_t id)
{
    iface_enumeration_add(&gTarn_net_state.mesh, &MESH, ctx, path, id);
}

void enumerate_meshes_remove(const char *path)
{
    iface_list_free_iface(&gTarn_net_state.mesh.list, path);
}

void meshes_forget_all()
{
    iface_list_free_all(&gTarn_net_state.mesh.list);
}

void init_mesh_info()
{
    if (iface_enumeration_start(&gTarn_net_state.mesh, &MESH))
        mesh_statistics_arm();
}

void mesh_reset()
{
    mesh_state &mesh = gTarn_net_state.mesh;
    uloop_timeout_cancel(&mesh.lonely_timer);
    mesh_statistics_abandon();
    mesh_clear_gateway_info();
    iface_enumeration_reset(&mesh);
}
