// The upstream decision: every row of its table, the grace periods of the mesh, the lonely service,
// through the end of cycles.
#include "wired/netifd/iface.h"
#include "wired/node_fixture.h"

namespace {

struct Upstream : node_fixture {
    void SetUp() override
    {
        node_fixture::SetUp();
        for (wifi_radio_settings &radio : gWifi_live_settings.radios)
            radio.mesh_enable = false;
        gWifi_live_settings.radios[1].mesh_enable = true;
        run("uci -q delete wireless.mesh0.pre_config; uci -q delete wireless.mesh1.pre_config; "
            "uci commit wireless; /etc/init.d/lonely stop");
    }
    /// Both grace periods of the mesh are over.
    void mesh_is_old()
    {
        upstream().mesh_ready = true;
        upstream().mesh_up = true;
    }
};

void no_mesh(Upstream &)
{
    gWifi_live_settings.radios[1].mesh_enable = false;
}
void old_mesh(Upstream &test)
{
    test.mesh_is_old();
    uloop_timeout_set(&test.upstream().mesh_ready_timer, 60000);
}
void override_radio(Upstream &)
{
    snprintf(gWifi_live_settings.radio_override, 8, "1.2");
}
void lonely_runs(Upstream &)
{
    run("/etc/init.d/lonely start");
}
void lonely_runs_overridden(Upstream &test)
{
    lonely_runs(test);
    override_radio(test);
}
void lonely_died(Upstream &)
{
    write_file("/var/run/lonely.pid", "4194303\n");
}
void pid_file_is_garbage(Upstream &)
{
    write_file("/var/run/lonely.pid", "what?\n");
}

constexpr auto WIRE = "br-wired0";
constexpr auto RP = "br-mesh_rp";

/// Where the node stands between two cycles.
struct standing {
    uint32_t state;
    const char *uplink = "";
    int failures = 0;
};
struct transition {
    const char *name;
    standing from;
    const char *bridge = WIRE; ///< the wired one that leads out
    void (*arrange)(Upstream &) = nullptr;
    struct {
        uint32_t result;
        const char *passed = nullptr; ///< null: it fails
    } cycle;
    standing to;
    bool is_done = true; ///< false: the cycle counts, nothing else happens yet
    bool grace_begins = false;
};
std::ostream &operator<<(std::ostream &out, const transition &row)
{
    return out << row.name;
}

// clang-format off
const transition TRANSITIONS[] = {
    {.name = "FirstWiredSuccess", .from = {NONE}, .cycle = {WAN, WIRE}, .to = {WAN, WIRE}},
    {.name = "NoBridgeYet", .from = {NONE}, .bridge = "",
     .cycle = {WAN, WIRE}, .to = {NONE}, .is_done = false},
    {.name = "NoBridgeYetOnTheMesh", .from = {MESH, RP, 2}, .bridge = "",
     .cycle = {WAN, WIRE}, .to = {MESH, RP}, .is_done = false},
    {.name = "NoBridgeYetWhileLonely", .from = {LONELY, RP, 5}, .bridge = "",
     .arrange = lonely_runs, .cycle = {WAN, WIRE}, .to = {LONELY, RP}, .is_done = false},
    {.name = "NothingChanges", .from = {WAN, WIRE, 2}, .cycle = {WAN, WIRE}, .to = {WAN, WIRE}},
    {.name = "OtherWiredPort", .from = {WAN, WIRE}, .bridge = "br-wired1",
     .cycle = {WAN, "br-wired1"}, .to = {WAN, "br-wired1"}},
    {.name = "ToleratedFailure", .from = {WAN, WIRE, 1}, .cycle = {WAN}, .to = {WAN, WIRE, 2}},
    // Only the state changes, not the interface: that is reported as a failure, and failures count
    // on.
    {.name = "WireLost", .from = {WAN, WIRE, 2}, .cycle = {WAN}, .to = {MESH, WIRE, 3}},
    {.name = "NeverHadAWire", .from = {NONE, "", 2}, .bridge = "",
     .cycle = {NONE}, .to = {MESH, "", 3}},
    {.name = "WireLostNoMesh", .from = {WAN, WIRE, 9}, .arrange = no_mesh,
     .cycle = {WAN}, .to = {WAN, WIRE, 10}},
    {.name = "MeshCarriesOn", .from = {MESH, RP}, .bridge = "",
     .cycle = {MESH, RP}, .to = {MESH, RP}},
    {.name = "FirstMeshSuccess", .from = {MESH, WIRE, 3}, .cycle = {MESH, RP}, .to = {MESH, RP}},
    {.name = "WireIsBack", .from = {MESH, RP}, .arrange = old_mesh,
     .cycle = {WAN, WIRE}, .to = {WAN, WIRE}},
    {.name = "FreshMeshFails", .from = {MESH, RP, 2},
     .cycle = {MESH}, .to = {MESH, RP}, .grace_begins = true},
    {.name = "OldMeshFails", .from = {MESH, RP, 1}, .arrange = old_mesh,
     .cycle = {MESH}, .to = {MESH, RP, 2}},
    {.name = "OldMeshLost", .from = {MESH, RP, 2}, .arrange = old_mesh,
     .cycle = {MESH}, .to = {LONELY, RP, 3}},
    {.name = "LonelyFindsAMesh", .from = {LONELY, RP, 5}, .cycle = {MESH, RP}, .to = {MESH, RP}},
    {.name = "LonelyDied", .from = {LONELY, RP, 5}, .arrange = lonely_died,
     .cycle = {MESH, "orph_conn0"}, .to = {MESH, "orph_conn0"}},
    {.name = "GarbledProcessId", .from = {LONELY, RP, 5}, .arrange = pid_file_is_garbage,
     .cycle = {MESH, RP}, .to = {MESH, RP}},
    {.name = "SuccessCountsLastReportFailed", .from = {LONELY, RP},
     .cycle = {LONELY, RP}, .to = {MESH, RP}},
    {.name = "LonelyStillScans", .from = {LONELY, RP}, .arrange = lonely_runs,
     .cycle = {MESH, "orph_conn0"}, .to = {LONELY, RP}},
    {.name = "OverrideWhileLonely", .from = {LONELY, RP, 7}, .arrange = override_radio,
     .cycle = {LONELY}, .to = {MESH, RP}},
    {.name = "OverrideLonelyScans", .from = {LONELY, RP, 7}, .arrange = lonely_runs_overridden,
     .cycle = {LONELY}, .to = {LONELY, RP}},
    {.name = "WireIsBackWhileLonely", .from = {LONELY, RP, 9}, .arrange = lonely_runs,
     .cycle = {WAN, WIRE}, .to = {WAN, WIRE}},
    {.name = "StillNothing", .from = {LONELY, RP, 9}, .cycle = {LONELY}, .to = {LONELY, RP, 10}},
    {.name = "StateOutOfRange", .from = {7, RP, 2}, .cycle = {WAN}, .to = {WAN, RP, 3}},
};
// clang-format on

struct Transition : Upstream, testing::WithParamInterface<transition> {};

} // namespace

TEST_P(Transition, EndsWhereTheTableSays)
{
    const transition &row = GetParam();
    stand_in(row.from.state, row.from.uplink, row.bridge);
    test().test_failures = row.from.failures;
    if (row.arrange)
        row.arrange(*this);
    uloop_timeout_set(&gTarn_net_state.mesh.lonely_timer, 60000);
    (void)commands();
    end_cycle(row.cycle.result, row.cycle.passed);
    if (!row.is_done) { // nor is it by halves
        EXPECT_EQ(commands(), std::vector<std::string>{});
        EXPECT_TRUE(gTarn_net_state.mesh.lonely_timer.pending);
        EXPECT_TRUE(gTarn_net_state.bridges.enumerate_timer.pending);
        EXPECT_EQ(led("gateway"), "");
    }
    EXPECT_STREQ(upstream_state_name(test().upstream_state), upstream_state_name(row.to.state));
    EXPECT_STREQ(test().uplink_iface, row.to.uplink);
    EXPECT_EQ(test().test_failures, row.to.failures);
    EXPECT_EQ(test().interfaces_to_test, 0);
    EXPECT_EQ(upstream().since_s != 0, row.to.state != row.from.state);
    const bool old = row.arrange == old_mesh && row.to.state == MESH; // each mesh has its own grace
    EXPECT_EQ(upstream().mesh_up, old);
    EXPECT_EQ(upstream().mesh_ready_timer.pending, old || row.grace_begins);
    if (row.to.failures == 3) { // which is too many
        EXPECT_EQ(led("dhcp_inet_fail"), row.bridge[0] != '\0' ? "1" : "0");
    }
}
INSTANTIATE_TEST_SUITE_P(Upstream, Transition, testing::ValuesIn(TRANSITIONS),
                         [](const auto &row) { return row.param.name; });

TEST_F(Upstream, BeforeConfigurationThirtyFailuresAreTolerated)
{
    run("uci set wireless.mesh0.pre_config=1; uci set wireless.mesh1.pre_config=1; "
        "uci commit wireless");
    no_mesh(*this);
    stand_in(WAN, WIRE, WIRE);
    fail_cycles(29);
    EXPECT_EQ(test().upstream_state, WAN);
    EXPECT_EQ(gOnline_settings.failure_tolerance, 30);
    fail_cycles(1);
    EXPECT_EQ(test().upstream_state, MESH);

    // The first radio with its mesh on ends the walk: radio 1 is not asked about any more.
    stand_in(WAN, WIRE, WIRE);
    test().test_failures = 0;
    gOnline_settings.failure_tolerance = 3;
    gWifi_live_settings.radios[0].mesh_enable = true;
    run("uci delete wireless.mesh1.pre_config; uci commit wireless");
    fail_cycles(3);
    EXPECT_EQ(gOnline_settings.failure_tolerance, 30);
    EXPECT_EQ(test().upstream_state, WAN);

    // One radio that has been configured is enough not to wait.
    run("uci delete wireless.mesh0.pre_config; uci commit wireless");
    gOnline_settings.failure_tolerance = 3;
    fail_cycles(1);
    EXPECT_EQ(gOnline_settings.failure_tolerance, 3);
    EXPECT_EQ(test().upstream_state, MESH);
}

TEST_F(Upstream, MeshHasTwoGracePeriods)
{
    for (int factor : {1, 2}) {
        SCOPED_TRACE(factor == 2 ? "with a radio override" : "without a radio override");
        if (factor == 2)
            override_radio(*this);
        stand_in(MESH, RP, WIRE);
        test().test_failures = 0;
        upstream().mesh_ready = upstream().mesh_up = false;
        uloop_clock_virtual(true);
        end_cycle(MESH, nullptr);
        uloop_clock_run_ms(factor * 150000 - 10);
        end_cycle(MESH, nullptr);
        EXPECT_EQ(test().test_failures, 0) << "the mesh comes up";
        uloop_clock_run_ms(20);
        EXPECT_TRUE(upstream().mesh_ready);
        end_cycle(MESH, nullptr);
        EXPECT_EQ(test().test_failures, 1) << "no neighbours, there is not even a bat0";
        EXPECT_TRUE(logged("No neighbors found on bat0, failing inet test"));
        EXPECT_FALSE(upstream().mesh_up);
        uloop_clock_run_ms(factor * 600000 + 10);
        EXPECT_TRUE(upstream().mesh_up);
        uloop_clock_virtual(false);
        end_cycle(MESH, nullptr);
        end_cycle(MESH, nullptr);
        EXPECT_EQ(test().upstream_state, LONELY);
        EXPECT_FALSE(upstream().mesh_ready || upstream().mesh_up);
    }
}

TEST_F(Upstream, LonelyScanThatHangsIsEndedOnceTheMeshHasCarriedTheNodeForTenMinutes)
{
    gOnline_settings.test_interval = 60;
    stand_in(LONELY, RP, WIRE);
    lonely_runs(*this);
    for (int i = 0; i < 10; i++)
        end_cycle(MESH, RP);
    end_cycle(LONELY, nullptr);
    for (int i = 0; i < 10; i++)
        end_cycle(MESH, RP);
    EXPECT_EQ(test().upstream_state, LONELY) << "all the time, that is";
    (void)commands();
    end_cycle(MESH, RP);
    EXPECT_EQ(test().upstream_state, MESH);
    EXPECT_EQ(commands().front(), "/etc/init.d/lonely stop");
}

TEST_F(Upstream, MeshFailuresDoNotCountWhilePowerIsNegotiatedOrSettingsWait)
{
    stand_in(MESH, RP, WIRE);
    mesh_is_old();
    write_file("/sys/class/gpio/dc_detect/value", "0\n");
    write_file("/sys/class/gpio/poe_at_detect/value", "0\n");
    write_file("/var/state/wireless", "wireless._lldp='lldp'\n"
                                      "wireless._lldp.negotiation_complete='0'\n");
    fail_cycles(5);
    EXPECT_EQ(test().test_failures, 0);
    run("rm /var/state/wireless");
    fail_cycles(1);
    EXPECT_EQ(test().test_failures, 1);

    write_file("/tmp/wifi-delayed-7", "set wireless.radio0.channel='1'\n");
    wifi_delayed_stage("/tmp/wifi-delayed-7");
    wifid_parse_config_event_handler(daemon, nullptr, "", json_message(R"({"success":true})").head);
    fail_cycles(5);
    EXPECT_EQ(test().test_failures, 0);
    wifid_cancel_delayed_wireless();
    fail_cycles(3);
    EXPECT_EQ(test().upstream_state, LONELY);
}

TEST_F(Upstream, RepeaterWithACableBecomesAGateway)
{
    run("ip link add eth0 type veth peer name far0; ip link add eth1 type veth peer name far1; "
        "ip link set eth0 up; ip link set eth1 up; ip link set far1 up");
    stand_in(MESH, RP, "");
    end_cycle(MESH, RP);
    end_cycle(MESH, RP);
    EXPECT_EQ(upstream().wc_eth1_up_count, 2);
    EXPECT_EQ(upstream().wc_eth0_up_count, 0);
    run("ip link set far1 down");
    end_cycle(MESH, RP);
    EXPECT_EQ(upstream().wc_eth1_up_count, 0) << "the count starts anew without link";
    EXPECT_STREQ(upstream().wired_uplink_bridge, "");
    run("ip link set far1 up");
    (void)commands();
    for (int i = 0; i < 3; i++)
        end_cycle(MESH, RP);
    EXPECT_STREQ(upstream().wired_uplink_bridge, "br-wired1");
    EXPECT_EQ(test().upstream_state, MESH) << "the wired test of the next cycle decides";
    EXPECT_EQ(commands().front(), "batctl gw_mode client");
    end_cycle(WAN, "br-wired1");
    EXPECT_EQ(test().upstream_state, WAN);
    EXPECT_STREQ(test().uplink_iface, "br-wired1");

    // With link on both for as long, the first port it is.
    run("ip link set far0 up");
    stand_in(MESH, RP, "");
    upstream().wc_eth1_up_count = 0;
    for (int i = 0; i < 3; i++)
        end_cycle(MESH, RP);
    EXPECT_STREQ(upstream().wired_uplink_bridge, "br-wired0");
    run("ip link set far0 down");

    // The cable's last cycle ends the lonely service like any other success through the mesh.
    stand_in(LONELY, RP, "");
    uloop_timeout_set(&gTarn_net_state.mesh.lonely_timer, 60000);
    (void)commands();
    end_cycle(MESH, "orph_conn0");
    EXPECT_STREQ(upstream().wired_uplink_bridge, "br-wired1");
    EXPECT_EQ(commands().front(), "/etc/init.d/lonely stop");
    EXPECT_FALSE(gTarn_net_state.mesh.lonely_timer.pending);
    run("ip link del eth0; ip link del eth1");
}
