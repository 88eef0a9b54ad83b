// Each neighbour through the real broker: what it answers, announces, and the faults it plays.
#include <csignal>
#include <gtest/gtest.h>
#include <libubus.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include "support/eventually.h"
#include "support/program.h"
#include "support/run.h"
#include "support/temporary_directory.h"

namespace {

constexpr const char *SOCKET = "/var/run/ubus/ubus.sock";
constexpr const char *JOURNAL = "/var/log/journal";

outcome call(const std::string &path, const std::string &method, const std::string &json = "{}")
{
    return run("ubus -S -t 1 call " + path + " " + method + " '" + json + "'");
}

bool on_bus(const std::string &path)
{
    return run("ubus list '" + path + "'").output == path + "\n";
}

bool journal_holds(const std::string &text)
{
    return read_file(JOURNAL).find(text) != std::string::npos;
}

bool holds(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// A connection that keeps what it hears: "NAME {JSON}" for each notification.
class ear {
public:
    explicit ear(const char *path)
    {
        said.clear();
        subscriber_.cb = notified;
        uint32_t id = 0;
        EXPECT_EQ(ubus_register_subscriber(ctx_, &subscriber_), 0);
        EXPECT_EQ(ubus_lookup_id(ctx_, path, &id), 0);
        EXPECT_EQ(ubus_subscribe(ctx_, &subscriber_, id), 0);
    }
    ~ear() { ubus_free(ctx_); }
    ear(const ear &) = delete;
    ear &operator=(const ear &) = delete;

    bool hears(const std::string &text)
    {
        return eventually([&] {
            ubus_handle_event(ctx_);
            return holds(said, text);
        });
    }

    /// True when `text` was heard at least `times` times by now.
    static bool heard(int times, const std::string &text)
    {
        for (size_t at = 0; (at = said.find(text, at)) != std::string::npos; at++)
            times--;
        return times <= 0;
    }

private:
    static int notified(ubus_context *, ubus_object *, ubus_request_data *, const char *method,
                        blob_attr *msg)
    {
        char *json = blobmsg_format_json(msg, true);
        said += std::string(method) + " " + json + "\n";
        free(json);
        return 0;
    }

    static inline std::string said;
    ubus_context *ctx_ = ubus_connect(nullptr);
    ubus_subscriber subscriber_ = {};
};

// The broker and one neighbour, fresh for each test.
class Neighbour : public testing::Test {
protected:
    void start_broker()
    {
        broker_ = std::make_unique<program>(std::vector<std::string>{"ubusd"});
        ASSERT_TRUE(eventually([] { return run("ubus list").status == 0; }));
    }

    void SetUp() override
    {
        write_file(JOURNAL, "");
        start_broker();
    }

    void TearDown() override
    {
        peer_.reset();
        broker_.reset();
        unlink(SOCKET);
    }

    void start(const std::string &name, const std::string &path)
    {
        peer_ = std::make_unique<program>(std::vector<std::string>{name});
        ASSERT_TRUE(eventually([&] { return on_bus(path); }));
    }

    std::unique_ptr<program> broker_, peer_;
};

} // namespace

TEST_F(Neighbour, NetifdFollowsTheCarrier)
{
    run("ip link add br-wired0 type bridge; ip link add eth0 type veth peer name far0;"
        " ip link set eth0 master br-wired0; ip link set eth0 up; ip link set br-wired0 up");
    start("sim_netifd", "network.interface.wired0");
    // A new bridge may claim a carrier until the kernel has looked at its ports, a second at most.
    EXPECT_TRUE(eventually(
        [] { return holds(call("network.interface.wired0", "status").output, "\"up\":false"); }));
    ear listener("network.interface.wired0");

    // As the real one was recorded.
    const std::string facts =
        R"(,"l3_device":"br-wired0","proto":"dhcp","device":"br-wired0",)"
        R"("updated":["addresses","routes","data"],"metric":10,"dns_metric":0,"delegation":true,)"
        R"("ipv4-address":[{"address":"10.10.0.2","mask":24}],"ipv6-address":[],"ipv6-prefix":[],)"
        R"("ipv6-prefix-assignment":[],"route":[{"target":"0.0.0.0","mask":0,)"
        R"("nexthop":"10.10.0.1","source":"10.10.0.2/32"}],"dns-server":["203.0.113.53"],)"
        R"("dns-search":[],"neighbors":[],"inactive":{"ipv4-address":[],"ipv6-address":[],)"
        R"("route":[],"dns-server":[],"dns-search":[],"neighbors":[]},"data":{"leasetime":120}})";
    const std::string down =
        R"("pending":false,"available":true,"autostart":false,"dynamic":false,"proto":"dhcp",)"
        R"("device":"br-wired0","data":{"leasetime":120}})";
    run("ip link set far0 up");
    EXPECT_TRUE(listener.hears(R"(interface.update {"interface":"wired0","up":true,)"
                               R"("pending":false,"available":true,"autostart":true,)"
                               R"("dynamic":false,"uptime":)"));
    EXPECT_TRUE(listener.hears(facts));
    std::string status = call("network.interface.wired0", "status").output;
    EXPECT_TRUE(status.starts_with(R"({"up":true,"pending":false,)")) << status;
    EXPECT_TRUE(holds(run("ip route show table 10").output, "default via 10.10.0.1"));
    EXPECT_FALSE(holds(run("ip route show table main").output, "default"));
    EXPECT_TRUE(holds(run("ip route get 203.0.113.80").output, "via 10.10.0.1"));

    call("network.interface", "down", "{\"interface\":\"wired0\"}");
    const std::string lost = R"(interface.down {"interface":"wired0","up":false,)" + down;
    EXPECT_TRUE(listener.hears(lost + "\n" + lost)) << "it is said twice";
    EXPECT_EQ(run("ip route show table 10; ip rule | grep 'lookup 10'").output, "");
    call("network.interface", "up", "{\"interface\":\"wired0\"}");
    EXPECT_TRUE(eventually(
        [] { return holds(call("network.interface.wired0", "status").output, "\"up\":true"); }));
    EXPECT_EQ(call("network.interface", "up", "{\"interface\":\"none\"}").status, 4);

    write_file("/var/sim/lease/orph_conn0", "10.13.0.2/24 10.13.0.1\n");
    call("network", "reload");
    EXPECT_TRUE(on_bus("network.interface.orph_conn0"));
    unlink("/var/sim/lease/orph_conn0");
    call("network", "reload");
    EXPECT_FALSE(on_bus("network.interface.orph_conn0"));
}

TEST_F(Neighbour, PlaysFaults)
{
    start("sim_lldpd", "qnet.lldp");
    const std::string good = "{\"negotiation_complete\":true}\n";
    const struct {
        const char *fault;
        int status;
        std::string output;
    } cases[] = {
        {"hang", 7, ""},
        {"twice", 0, good + good},
        {"wrong", 0, "{\"negotiation_complete\":\"wrong\"}\n"},
        {"empty", 0, ""},
        {"fail", 9, ""},
        {"late", 0, good},
        {"none", 0, good},
    };
    for (auto &each : cases) {
        call("qnet.lldp", "sim",
             std::string("{\"fault\":\"") + each.fault + "\",\"delay_ms\":100,\"count\":1}");
        outcome result = call("qnet.lldp", "status");
        EXPECT_EQ(result.status, each.status) << each.fault;
        EXPECT_EQ(result.output, each.output) << each.fault;
        EXPECT_EQ(call("qnet.lldp", "status").output, good) << "after " << each.fault;
    }
    EXPECT_EQ(call("qnet.lldp", "sim", "{\"fault\":\"unknown\"}").status, 2);

    ear listener("qnet.lldp");
    call("qnet.lldp", "sim",
         "{\"fault\":\"hang\",\"method\":\"lldp_negotiation_complete\",\"count\":1}");
    call("qnet.lldp", "negotiate", "{\"complete\":true}");
    call("qnet.lldp", "sim",
         "{\"fault\":\"twice\",\"method\":\"lldp_negotiation_complete\",\"count\":1}");
    call("qnet.lldp", "negotiate", "{\"complete\":true}");
    call("qnet.lldp", "sim", "{\"fault\":\"none\"}");
    call("qnet.lldp", "negotiate", "{\"complete\":false}");
    EXPECT_TRUE(listener.hears("lldp_negotiation_complete {}\nlldp_negotiation_complete {}\n"));
    EXPECT_FALSE(listener.heard(3, "lldp_negotiation_complete")) << "one was to be dropped";

    call("qnet.lldp", "sim", "{\"fault\":\"die\"}");
    EXPECT_NE(call("qnet.lldp", "status").status, 0);
    EXPECT_TRUE(eventually([] { return !on_bus("qnet.lldp"); }));
}

TEST_F(Neighbour, HostapdFollowsTheConfigurationAndComesBackWithTheBroker)
{
    start("sim_hostapd", "hostapd.ap0_1");
    EXPECT_FALSE(on_bus("hostapd.ap0_4"));
    EXPECT_EQ(call("hostapd.ap0_1", "rrm_nr_set", "{\"list\":[[\"a\",\"b\",\"c\"]]}").status, 0);
    EXPECT_TRUE(journal_holds("sim_hostapd hostapd.ap0_1 rrm_nr_set "
                              "{\"list\":[[\"a\",\"b\",\"c\"]]}\n"));
    broker_->end(SIGKILL);
    run("uci set wireless.ap0_4.enable=1; uci set wireless.radio1.enable=0; uci commit wireless");
    start_broker();
    EXPECT_TRUE(eventually([] { return on_bus("hostapd.ap0_1") && on_bus("hostapd.ap1_3"); }));
    program procd({"sim_procd"});
    ASSERT_TRUE(eventually([] { return on_bus("service"); }));
    EXPECT_EQ(run("reload_config").status, 0);
    EXPECT_TRUE(eventually([] { return on_bus("hostapd.ap0_4") && !on_bus("hostapd.ap1_3"); }));
}
