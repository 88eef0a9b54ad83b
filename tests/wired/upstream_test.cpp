// The upstream decision: every row of its table, the grace periods of the mesh, the lonely service,
// through the end of cycles.
#include "wired/node_fixture.h"

#include "wired/netifd/iface.h"

namespace {

constexpr uint32_t NONE = TARN_NET_UPSTREAM_NONE;
constexpr uint32_t WAN = TARN_NET_UPSTREAM_WAN_STATE;
constexpr uint32_t MESH = TARN_NET_UPSTREAM_MESH_STATE;
constexpr uint32_t LONELY = TARN_NET_LONELY_ORPHAN_STATE;

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

struct transition {
    const char *what;
    uint32_t from;
    const char *uplink, *bridge;
    void (*arrange)(Upstream &);
    int failures; ///< failed cycles before this one
    uint32_t result;
    const char *passed; ///< null: the cycle fails
    uint32_t to;
    const char *uplink_then;
    int failures_then;
};

constexpr auto WIRE = "br-wired0";
constexpr auto RP = "br-mesh_rp";

const transition TRANSITIONS[] = {
    {"first wired success", NONE, "", WIRE, nullptr, 0, WAN, WIRE, WAN, WIRE, 0},
    {"no bridge enumerated yet", NONE, "", "", nullptr, 0, WAN, WIRE, NONE, "", 0},
    {"no bridge enumerated yet", MESH, RP, "", nullptr, 2, WAN, WIRE, MESH, RP, 0},
    {"no bridge enumerated yet", LONELY, RP, "", lonely_runs, 5, WAN, WIRE, LONELY, RP, 0},
    {"nothing changes", WAN, WIRE, WIRE, nullptr, 2, WAN, WIRE, WAN, WIRE, 0},
    {"other wired port", WAN, WIRE, "br-wired1", nullptr, 0, WAN, "br-wired1", WAN, "br-wired1", 0},
    {"tolerated failure", WAN, WIRE, WIRE, nullptr, 1, WAN, nullptr, WAN, WIRE, 2},
    // Only the state changes, not the interface: that is reported as a failure, and failures count
    // on.
    {"wire lost", WAN, WIRE, WIRE, nullptr, 2, WAN, nullptr, MESH, WIRE, 3},
    {"never had a wire", NONE, "", "", nullptr, 2, NONE, nullptr, MESH, "", 3},
    {"wire lost, no mesh", WAN, WIRE, WIRE, no_mesh, 9, WAN, nullptr, WAN, WIRE, 10},
    {"mesh carries on", MESH, RP, "", nullptr, 0, MESH, RP, MESH, RP, 0},
    {"first mesh success", MESH, WIRE, WIRE, nullptr, 3, MESH, RP, MESH, RP, 0},
    {"wire is back", MESH, RP, WIRE, nullptr, 0, WAN, WIRE, WAN, WIRE, 0},
    {"fresh mesh fails", MESH, RP, WIRE, nullptr, 2, MESH, nullptr, MESH, RP, 0},
    {"old mesh fails", MESH, RP, WIRE, old_mesh, 1, MESH, nullptr, MESH, RP, 2},
    {"old mesh lost", MESH, RP, WIRE, old_mesh, 2, MESH, nullptr, LONELY, RP, 3},
    {"lonely finds a mesh", LONELY, RP, WIRE, nullptr, 5, MESH, RP, MESH, RP, 0},
    {"lonely died", LONELY, RP, WIRE, lonely_died, 5, MESH, "orph_conn0", MESH, "orph_conn0", 0},
    {"garbled process id", LONELY, RP, WIRE, pid_file_is_garbage, 5, MESH, RP, MESH, RP, 0},
    {"success counts, last report failed", LONELY, RP, WIRE, nullptr, 0, LONELY, RP, MESH, RP, 0},
    {"lonely still scans", LONELY, RP, WIRE, lonely_runs, 0, MESH, "orph_conn0", LONELY, RP, 0},
    {"override while lonely", LONELY, RP, WIRE, override_radio, 7, LONELY, nullptr, MESH, RP, 0},
    {"override, lonely scans", LONELY, RP, WIRE, lonely_runs_overridden, 7, LONELY, nullptr, LONELY,
     RP, 0},
    {"wire is back while lonely", LONELY, RP, WIRE, lonely_runs, 9, WAN, WIRE, WAN, WIRE, 0},
    {"still nothing", LONELY, RP, WIRE, nullptr, 9, LONELY, nullptr, LONELY, RP, 10},
    {"state out of range", 7, RP, WIRE, nullptr, 2, WAN, nullptr, WAN, RP, 3},
};

} // namespace

TEST_F(Upstream, TransitionTable)
{
    for (const transition &row : TRANSITIONS) {
        SCOPED_TRACE(row.what);
        TearDown();
        SetUp();
        stand_in(row.from, row.uplink, row.bridge);
        test().test_failures = row.failures;
        if (row.arrange != nullptr)
            row.arrange(*this);
        uloop_timeout_set(&gTarn_net_state.mesh.lonely_timer, 60000);
        (void)commands();
        end_cycle(row.result, row.passed);
        if (std::string("no bridge enumerated yet") == row.what) { // nor is anything done by halves
            EXPECT_EQ(commands(), std::vector<std::string>{});
            EXPECT_TRUE(gTarn_net_state.mesh.lonely_timer.pending);
            EXPECT_TRUE(gTarn_net_state.bridges.enumerate_timer.pending);
            EXPECT_EQ(led("gateway"), "");
        }
        EXPECT_STREQ(upstream_state_name(test().upstream_state), upstream_state_name(row.to));
        EXPECT_STREQ(test().uplink_iface, row.uplink_then);
        EXPECT_EQ(test().test_failures, row.failures_then);
        EXPECT_EQ(test().interfaces_to_test, 0);
        EXPECT_EQ(upstream().mesh_ready_timer.pending, std::string("fresh mesh fails") == row.what);
    }
}

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

TEST_F(Upstream, NothingIsWeighedBeforeTheCycleIsDispatched)
{
    stand_in(WAN, WIRE, WIRE);
    test().dispatch_complete = false;
    test().test_passed = 0;
    complete_inet_test(WAN);
    EXPECT_EQ(test().test_failures, 0);
}
