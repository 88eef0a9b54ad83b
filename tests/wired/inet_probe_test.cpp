// The internet test over real interfaces to a simulated internet in a namespace of its own: plain
// and TLS targets, the ways they fail, several interfaces, aborts.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>

#include "mesh/mesh.h"
#include "support/eventually.h"
#include "support/program.h"
#include "wired/bridges.h"
#include "wired/netifd/iface.h"
#include "wired/node_fixture.h"
#include "wired/wired.h"
#include "zu/curl_fixture.h"

/// libcurl as a router may have it, built without its texts.
static bool gTexts_missing;
extern "C" const char *curl_easy_strerror(CURLcode code)
{
    using strerror_function = const char *(*)(CURLcode);
    static const auto real =
        reinterpret_cast<strerror_function>(dlsym(RTLD_NEXT, "curl_easy_strerror"));
    return gTexts_missing ? "Error" : real(code);
}

namespace {

constexpr int MESH_IFACES = 8; // one more than a cycle takes

constexpr char PLAIN[] = "http://203.0.113.80";
constexpr char TLS[] = "https://check.internet.test";
constexpr char REFUSED[] = "http://203.0.113.81:81";
constexpr char SILENT[] = "http://203.0.113.99";
constexpr char UNKNOWN[] = "http://gone.internet.test";
constexpr char UNTRUSTED[] = "https://bad.internet.test";

struct InetTest : node_fixture {
    static inline std::unique_ptr<program> internet;
    std::vector<std::string> paths;

    static void cable(const std::string &device, int number)
    {
        const std::string net = "10.1" + std::to_string(number) + ".0.";
        const std::string far = "far" + std::to_string(number);
        run("ip link add " + device + " type veth peer name " + far +
            " netns internet; ip link set " + device + " up; ip address add " + net + "2/24 dev " +
            device + "; ip -n internet link set " + far + " up; ip -n internet address add " + net +
            "1/24 dev " + far + "; ip route add default via " + net + "1 dev " + device +
            " metric " + std::to_string(10 + number));
    }
    static void SetUpTestSuite()
    {
        run("ip netns add internet; ip -n internet link set lo up; for host in 43 44 53 80 81; do "
            "ip -n internet address add 203.0.113.$host/32 dev lo; done; "
            "echo nameserver 203.0.113.53 >/etc/resolv.conf; echo on >/var/sim/internet");
        cable("br-wired0", 0);
        for (int i = 0; i < MESH_IFACES; i++)
            cable("mesh" + std::to_string(i), i + 1);
        internet = std::make_unique<program>(
            std::vector<std::string>{"ip", "netns", "exec", "internet", "sim_internet",
                                     std::string(getenv("TARN_BUILD")) + "/sim/certificates"});
        ASSERT_TRUE(eventually(
            [] { return run("ip netns exec internet ss -ltn | grep -q :443").status == 0; }));
    }
    static void TearDownTestSuite() { internet.reset(); }

    void targets(const std::vector<std::string> &urls, int interval = 3600)
    {
        std::string section = "config inet_test 'inet_test_config'\n\toption test_interval '" +
                              std::to_string(interval) + "'\n";
        for (const std::string &url : urls)
            section += "\tlist inet_test_targets '" + url + "'\n";
        write_file("/etc/config/tarn_net", section + "\nconfig local 'local'\n");
        ASSERT_EQ(reload(), 0);
    }
    static int reload()
    {
        ng_uci_renew_change_context(); // as in a callback of its own
        return reload_inet_test_config();
    }
    void add_mesh(const std::string &name, const char *device, bool up)
    {
        auto *entry = new iface_entry{};
        entry->obj_path = strdup(("network.interface." + name).c_str());
        snprintf(entry->device, sizeof entry->device, "%s", device);
        entry->up = up;
        list_add_tail(&entry->link, &gTarn_net_state.mesh.list);
    }
    bool idle() { return test().interfaces_to_test == 0; }
    /// Runs one cycle to its end; how often the loop turned meanwhile.
    int cycle()
    {
        int turns = 0;
        run_uplink_test();
        run_until([&] {
            turns++;
            return idle();
        });
        return turns;
    }
    /// Of a cycle that ends by its time limit; two seconds of waiting inside the loop are few
    /// turns.
    static constexpr int MANY_TURNS = 20;
};

} // namespace

TEST_F(InetTest, EveryKindOfTargetComesToItsVerdict)
{
    const struct {
        std::vector<std::string> urls;
        bool passed;
    } cases[] = {
        {{PLAIN}, true},
        {{TLS}, true},
        {{REFUSED}, false},
        {{SILENT}, false},
        {{UNKNOWN}, false},
        {{UNTRUSTED}, false},
        {{"http://"}, false},
        {{"gopher://203.0.113.80:1"}, false},
        {{SILENT, UNKNOWN, UNTRUSTED, REFUSED, TLS}, true},
        {{SILENT, UNKNOWN, UNTRUSTED, REFUSED}, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.urls.front() + " and " + std::to_string(c.urls.size() - 1));
        targets(c.urls);
        stand_in(WAN, "br-wired0", "br-wired0");
        test().test_failures = 0;
        const int turns = cycle();
        EXPECT_EQ(test().test_passed, c.passed ? 1u : 0u);
        EXPECT_EQ(test().test_failures, c.passed ? 0 : 1);
        if (c.urls.front() == SILENT && !c.passed) {
            EXPECT_GT(turns, MANY_TURNS) << "nothing waits inside the loop";
        }
    }
}

TEST_F(InetTest, WordsForAFailureAreOursWhereLibcurlHasNone)
{
    targets({REFUSED, UNTRUSTED});
    stand_in(WAN, "br-wired0", "br-wired0");
    const auto shown = [] {
        json_message dump;
        inet_test_dump_outcomes(&dump);
        return std::string(zu_text(blobmsg_format_json(dump.head, true)).get());
    };
    const auto ask = [&](bool missing) {
        gTexts_missing = missing;
        cycle();
        const std::string dumped = shown();
        gTexts_missing = false;
        return dumped;
    };
    EXPECT_NE(ask(false).find("\"Couldn't connect to server\""), std::string::npos);
    EXPECT_EQ(logged("Code 7 of libcurl"), 0);
    const std::string dumped = ask(true);
    EXPECT_EQ(logged("NOTICE: Connection failed. Error:7."), 1);
    EXPECT_EQ(logged("NOTICE: Code 7 of libcurl: could not connect"), 1);
    EXPECT_NE(dumped.find("\"the certificate is not trusted\""), std::string::npos) << dumped;
    targets({PLAIN, TLS});
    EXPECT_EQ(shown(), "{}") << "what failed were other targets";
}

TEST_F(InetTest, SlowHandshakesAndNamesRunIntoTheLimit)
{
    write_file("/var/sim/internet", "slow 5000\n");
    internet->end(SIGHUP);
    stand_in(WAN, "br-wired0", "br-wired0");
    targets({TLS, "https://203.0.113.43", "http://portal.internet.test"});
    EXPECT_GT(cycle(), MANY_TURNS);
    EXPECT_EQ(test().test_passed, 0u);
    write_file("/var/sim/internet", "on\n");
    internet->end(SIGHUP);
}

TEST_F(InetTest, FirstWiredSuccessSwitchesAtOnce)
{
    targets({PLAIN, SILENT, SILENT});
    stand_in(NONE, "", "br-wired0");
    cycle();
    EXPECT_EQ(test().upstream_state, WAN);
    EXPECT_STREQ(test().uplink_iface, "br-wired0");
    EXPECT_EQ(logged(" on br-wired0 aborted"), 2) << "the siblings complete nothing";
    EXPECT_EQ(logged("DEBUG: Test passed"), 1);
    const auto ran = commands();
    EXPECT_EQ(std::count(ran.begin(), ran.end(), "batctl gw_mode server"), 1);
    const auto sent = sent_events();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_TRUE(sent[0].starts_with("netconfigd.gateway_mode"));
    EXPECT_TRUE(sent[1].starts_with("network.inet_test {\"success\":true"));

    stand_in(NONE, "", "");
    cycle(); // the one success ends it, too
    EXPECT_EQ(test().upstream_state, NONE) << "not before it is known which bridge that is";
    EXPECT_STREQ(test().uplink_iface, "");
    EXPECT_TRUE(gTarn_net_state.bridges.enumerate_timer.pending);
}

TEST_F(InetTest, EightInterfacesAndThirtyTwoTargets)
{
    std::vector<std::string> urls;
    for (int i = 0; i < 40; i++)
        urls.push_back(std::string(i % 2 ? TLS : PLAIN) + "/" + std::to_string(i));
    targets(urls);
    EXPECT_EQ(gOnline_settings.target_count, 32u) << "the rest is refused";
    add_mesh("orph_conn0", "mesh7", false);
    add_mesh("mesh_rp", "mesh0", true);
    for (int i = 1; i < MESH_IFACES; i++)
        add_mesh("orph_conn" + std::to_string(i), ("mesh" + std::to_string(i)).c_str(), true);
    stand_in(MESH, "mesh0", "br-wired9"); // no such interface: the wire is out of the race
    cycle();
    EXPECT_EQ(logged("Testing connection to"), 256);
    // A busy machine may keep some of them waiting for too long; each of them reports.
    EXPECT_EQ(logged("successful") + logged("Connection failed"), 256);
    EXPECT_EQ(logged("on interface mesh7 ..."), 0) << "one more than a cycle takes";
    EXPECT_EQ(test().upstream_state, MESH);
    EXPECT_EQ(test().test_failures, 0);
}

TEST_F(InetTest, OnlyTheWireIsTestedWhileTheNodeIsNoRepeater)
{
    targets({PLAIN});
    add_mesh("mesh_rp", "mesh0", true);
    stand_in(WAN, "br-wired0", "");
    cycle();
    EXPECT_EQ(logged("Testing connection to"), 1);
    EXPECT_EQ(logged("Test wired uplink on br-wired0"), 1) << "also while no bridge is known";
}

TEST_F(InetTest, LivingMeshInterfaceCountsInsteadOfNeighbours)
{
    targets({SILENT});
    stand_in(MESH, "mesh0", "br-wired0");
    add_mesh("mesh_rp", "mesh0", true);
    for (int i = 0; i < 4; i++)
        cycle();
    EXPECT_EQ(test().test_failures, 0) << "the first grace period is its own";
    ASSERT_TRUE(upstream().mesh_ready_timer.pending);

    uloop_timeout_cancel(&upstream().mesh_ready_timer);
    upstream().mesh_ready = true;
    iface_list_free_iface(&gTarn_net_state.mesh.list, "network.interface.mesh_rp");
    add_mesh("orph_conn0", "mesh1", true);
    cycle();
    run_uplink_test();
    abort_inet_test();
    EXPECT_TRUE(upstream().mesh_up_timer.pending) << "an orphan connection leaves it alone";
    add_mesh("mesh_rp", "mesh0", true);
    run_uplink_test();
    abort_inet_test();
    EXPECT_FALSE(upstream().mesh_up_timer.pending);
    EXPECT_TRUE(upstream().mesh_up);
    for (int i = 0; i < 2; i++)
        cycle();
    EXPECT_EQ(test().upstream_state, TARN_NET_LONELY_ORPHAN_STATE);
}

TEST_F(InetTest, PulledCable)
{
    targets({PLAIN, TLS});
    stand_in(WAN, "br-wired0", "br-wired0");
    run("ip -n internet link set far0 down");
    for (int i = 0; i < 2; i++)
        cycle();
    EXPECT_EQ(test().test_failures, 2);
    run("ip link set br-wired0 down");
    cycle();
    run("ip link set br-wired0 up; ip -n internet link set far0 up; "
        "ip route add default via 10.10.0.1 dev br-wired0 metric 10");
    EXPECT_EQ(test().test_failures, 3);
    ASSERT_TRUE(eventually([&] {
        cycle();
        return test().test_failures == 0;
    }));
}

TEST_F(InetTest, NoCycleStartsUnlessTheTestIsConfigured)
{
    const auto ask = [&] {
        run_uplink_test(); // as the end of a wait for wireless settings does
        EXPECT_TRUE(idle());
        EXPECT_EQ(logged("Test failed"), 0);
        EXPECT_FALSE(test().timer.pending);
    };
    targets({PLAIN}, 0);
    ask();
    targets({}, 5);
    ask();
    const online_settings read = std::exchange(gOnline_settings, {});
    ask();
    gOnline_settings = read;
}

TEST_F(InetTest, SettingsThatCannotBeReadStayAndAreReadLater)
{
    targets({PLAIN, TLS}, 7);
    std::string text = read_file("/etc/config/tarn_net");
    const int rival = open("/etc/config/tarn_net", O_RDWR);
    ASSERT_EQ(flock(rival, LOCK_EX), 0);
    run_uplink_test();
    EXPECT_EQ(reload(), 0);
    EXPECT_FALSE(idle()) << "what is in force stays";
    EXPECT_EQ(gOnline_settings.target_count, 2u);
    EXPECT_TRUE(test().timer.pending);
    abort_inet_test();

    // At a start nothing is in force.
    inet_test_reset();
    const online_settings before = std::exchange(gOnline_settings, {});
    ng_uci_renew_change_context();
    inet_test_init();
    EXPECT_FALSE(test().timer.pending);
    debug_set_level(ZU_LOG_INFO);
    const int said = logged("is locked by another process");
    uloop_clock_virtual(true);
    uloop_clock_run_ms(5000);
    EXPECT_EQ(gOnline_settings.targets, nullptr);
    EXPECT_EQ(logged("is locked by another process"), said);
    close(rival);
    write_file("/etc/config/tarn_net", text + "\toption torn 'x\n");
    uloop_clock_run_ms(5000);
    EXPECT_EQ(gOnline_settings.targets, nullptr);
    write_file("/etc/config/tarn_net", text);
    uloop_clock_run_ms(1100);
    EXPECT_EQ(gOnline_settings.target_count, 2u);
    EXPECT_TRUE(test().timer.pending);
    destroy_tarn_host_list(before.targets);
    delete before.targets;
}

TEST_F(InetTest, PushThatChangesNothingOfTheTestLeavesItAlone)
{
    targets({PLAIN, TLS}, 7);
    run_uplink_test();
    uloop_timeout_set(&test().timer, 1234);
    gOnline_settings.failure_tolerance = 30; // raised since
    const auto push = [](const char *params) {
        ng_uci_renew_change_context();
        (void)commands();
        return wired_parse_config(nullptr, json_message(params).head, nullptr);
    };
    EXPECT_EQ(push(R"({"params":{"igmp_proxy":true}})"), 0);
    EXPECT_EQ(uci("igmpproxy.igmpproxy.enable"), "1");
    EXPECT_EQ(commands().size(), 1u) << "the proxy gets to know";
    EXPECT_EQ(push(R"({"params":{"inet_test":{"test_interval":7},"wired_client":{}}})"), 0);
    EXPECT_EQ(push(R"({"params":{}})"), 0);
    EXPECT_EQ(commands(), std::vector<std::string>{}) << "nothing has changed";
    EXPECT_FALSE(idle());
    EXPECT_LE(uloop_timeout_remaining64(&test().timer), 1234);
    EXPECT_EQ(gOnline_settings.failure_tolerance, 30);
    for (const char *other :
         {R"("failure_tolerance":4)", R"("targets":["http://203.0.113.80","http://203.0.113.81"])",
          R"("targets":["http://203.0.113.80","http://203.0.113.81","http://203.0.113.99"])"}) {
        run_uplink_test();
        EXPECT_FALSE(idle());
        EXPECT_EQ(push((std::string(R"({"params":{"inet_test":{)") + other + "}}}").c_str()), 0);
        EXPECT_TRUE(idle()) << other;
    }
    EXPECT_EQ(gOnline_settings.failure_tolerance, 4);
    run("uci set tarn_net.inet_test_config.test_interval=8; uci commit tarn_net");
    EXPECT_EQ(push(R"({"params":{}})"), 0);
    EXPECT_EQ(gOnline_settings.test_interval, 8) << "nor does it keep what another has changed";
}

TEST_F(InetTest, TicksDuringACycleAndReloads)
{
    targets({SILENT, SILENT});
    stand_in(WAN, "br-wired0", "br-wired0");
    run_uplink_test();
    EXPECT_EQ(test().tests_to_run, 2u);
    run_uplink_test();
    EXPECT_EQ(test().tests_to_run, 2u);
    EXPECT_EQ(logged("Previous test still in progress, skipping this inet_check"), 1);
    uloop_run_timeout(20);
    targets({PLAIN}, 1);
    EXPECT_TRUE(idle());
    EXPECT_EQ(logged(" on br-wired0 aborted"), 2);
    EXPECT_EQ(logged("tests_to_run = 2"), 1);
    EXPECT_EQ(test().test_failures, 0) << "an aborted cycle has no verdict";
    run_until([&] { return logged("DEBUG: Test passed") == 1; });
    EXPECT_TRUE(test().timer.pending) << "the next tick is armed";
}

TEST_F(InetTest, CycleThatAnEnumerationDelaysRunsWhenThatEnds)
{
    targets({PLAIN});
    stand_in(WAN, "br-wired0", "br-wired0");
    uloop_clock_virtual(true);
    init_bridge_info();
    uloop_clock_run_ms(100);
    init_mesh_info();
    run_uplink_test();
    uloop_timeout_cancel(&test().timer); // no tick does it
    uloop_clock_run_ms(9950);
    EXPECT_FALSE(gTarn_net_state.bridges.enumerate_timer.pending);
    EXPECT_EQ(logged("Testing connection to"), 0) << "the other one still runs";
    uloop_clock_run_ms(100);
    uloop_clock_virtual(false);
    EXPECT_EQ(logged("Testing connection to"), 1);

    // Once; and an enumeration that delayed nothing starts nothing.
    run_until([&] { return idle(); });
    for (const auto start : {init_bridge_info, init_mesh_info})
        start();
    uloop_clock_virtual(true);
    uloop_clock_run_ms(10000);
    EXPECT_EQ(logged("Testing connection to"), 1);
}

TEST_F(InetTest, CycleThatCannotEndIsGivenUp)
{
    const auto begin = [&] {          // a cycle that loses one of its tests
        test().ticks_in_cycle = 1000; // of the one before
        run_uplink_test();
        test().test_passed = 1;
        uloop_curl_easy_destroy(&test().slots[0][0].easy);
        run_until([&] { return test().test_run_count == 1; });
    };
    for (const int interval_s : {5, 20}) { // more than a minute, and more than ten ticks
        targets({PLAIN, PLAIN}, interval_s);
        stand_in(WAN, "br-wired0", "br-wired9"); // no such interface
        test().test_failures = 1;
        log.clear();
        begin();
        run_uplink_test();
        EXPECT_EQ(logged("Previous test still in progress"), 1);
        ASSERT_EQ(reload(), 0);
        EXPECT_TRUE(idle()) << "a reload ends it without a verdict";

        begin();
        uloop_clock_virtual(true);
        uloop_clock_run_ms(std::max(60, 10 * interval_s) * 1000 + 1000);
        EXPECT_FALSE(idle());
        EXPECT_EQ(test().test_failures, 1);
        uloop_clock_run_ms(interval_s * 1000);
        EXPECT_EQ(logged("WARNING: The internet test cannot end (1 of 2 reported)"), 1);
        EXPECT_GE(test().test_failures, 2);
        uloop_clock_virtual(false);
        run_until([&] { return idle() && test().test_failures == 3; }); // the next one ran at once
    }
}

TEST_F(InetTest, InterfacesThatCannotBeTestedAndNamesThatMove)
{
    run("echo 127.0.0.1 localhost >/etc/hosts; echo 203.0.113.99 moved.internet.test >>/etc/hosts");
    const listener here;
    targets({here.url()});
    add_mesh("mesh_rp", "", true);        // up, but not named yet
    stand_in(MESH, "mesh0", "localhost"); // a host's name, which libcurl would bind to as well
    cycle();
    EXPECT_EQ(logged("Testing connection to"), 1);
    EXPECT_EQ(logged("successful"), 0);

    targets({"http://moved.internet.test"}, 1);
    uloop_timeout_cancel(&test().timer);
    stand_in(WAN, "br-wired0", "br-wired0");
    cycle(); // runs into the time limit, longer than the interval
    EXPECT_EQ(logged("successful"), 0);
    run("echo 203.0.113.80 moved.internet.test >/etc/hosts");
    cycle();
    EXPECT_EQ(logged("successful"), 1) << "names are looked up anew";
}

TEST_F(InetTest, SettingsThatAreMissingOrBad)
{
    write_file("/etc/config/tarn_net", "config inet_test 'inet_test_config'\n"
                                       "\toption failure_tolerance 'many'\n"
                                       "\toption test_interval '-5'\n"
                                       "\tlist inet_test_targets 'http://203.0.113.80'\n");
    EXPECT_EQ(reload(), 0);
    EXPECT_EQ(gOnline_settings.failure_tolerance, 3);
    EXPECT_FALSE(test().timer.pending);
    write_file("/etc/config/tarn_net", "config inet_test 'inet_test_config'\n"
                                       "\toption failure_tolerance '7'\n"
                                       "\toption test_interval '2147483647'\n"
                                       "\tlist inet_test_targets 'http://203.0.113.80'\n");
    test().last_verdict.at_s = 1;
    EXPECT_EQ(reload(), 0);
    EXPECT_LT(inet_test_seconds_since_verdict(), 60) << "the time without a test does not count";
    test().last_verdict.at_s = std::exchange(gOnline_settings.taken_at_s, 1);
    EXPECT_LT(inet_test_seconds_since_verdict(), 60);
    EXPECT_EQ(gOnline_settings.failure_tolerance, 7);
    EXPECT_GT(uloop_timeout_remaining64(&test().timer), 2147480000) << "no overflow";
    write_file("/etc/config/tarn_net", "config inet_test 'inet_test_config'\n"
                                       "\toption test_interval '5'\n");
    EXPECT_EQ(reload(), 0);
    EXPECT_EQ(gOnline_settings.target_count, 0u) << "the old list is not kept";
    EXPECT_FALSE(test().timer.pending);
    write_file("/etc/config/tarn_net", "config inet_test 'inet_test_config'\n"
                                       "\toption failure_tolerance '0'\n");
    EXPECT_EQ(reload(), 0);
    EXPECT_EQ(gOnline_settings.failure_tolerance, 1) << "a cycle that passes is tolerated";
}

TEST_F(InetTest, ThousandCyclesLeaveNothingBehind)
{
    debug_set_level(0);
    targets({PLAIN, REFUSED});
    stand_in(WAN, "br-wired0", "br-wired0");
    for (int i = 0; i < 20; i++)
        cycle();
    const auto before = open_files();
    for (int i = 0; i < 1000; i++) {
        test().test_failures = 1;
        cycle();
        ASSERT_EQ(test().test_failures, 0) << "cycle " << i;
    }
    // The last cycle's connections may still be closing.
    run_until([&] { return open_files() <= before; });
}
