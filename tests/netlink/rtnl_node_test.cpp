// Links and rules on the kernel this runs on, in a network namespace of its own, as iproute2 sees
// them.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>

#include <gtest/gtest.h>
#include <json-c/json.h>
#include <linux/capability.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "netlink/batman.h"
#include "netlink/log_capture.h"
#include "netlink/nl80211.h"
#include "netlink/rtnl.h"
#include "netlink/rtnl_internal.h"

using lines = std::vector<std::string>;
using json_handle = std::unique_ptr<json_object, int (*)(json_object *)>;

static long open_descriptors()
{
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

static bool ip(const std::string &arguments)
{
    return system(("ip " + arguments + " >/dev/null 2>&1").c_str()) == 0;
}

/// What `ip -j ARGUMENTS` prints; null when it fails.
static json_handle ip_json(const std::string &arguments)
{
    std::string text;
    FILE *pipe = popen(("ip -j -d " + arguments + " 2>/dev/null").c_str(), "r");
    for (int c = getc(pipe); c != EOF; c = getc(pipe))
        text += (char)c;
    pclose(pipe);
    return {json_tokener_parse(text.c_str()), json_object_put};
}

static std::string text_of(json_object *object, const char *key)
{
    json_object *value = json_object_object_get(object, key);
    return value ? json_object_get_string(value) : "";
}

/// A member of what `ip link` tells of one interface, "" when it is not told.
static std::string link_tells(const std::string &name, const char *key, const char *nest = nullptr)
{
    json_handle list = ip_json("link show dev " + name);
    json_object *one = list ? json_object_array_get_idx(list.get(), 0) : nullptr;
    if (one && nest)
        one = json_object_object_get(one, nest);
    return text_of(one, key);
}

static bool link_has_flag(const std::string &name, const std::string &flag)
{
    return link_tells(name, "flags").find('"' + flag + '"') != std::string::npos;
}

/// The rules of one priority, each as "src>dst/len iif table".
static lines rules(int priority)
{
    json_handle list = ip_json("rule show");
    lines out;
    for (size_t i = 0; list && i < json_object_array_length(list.get()); i++) {
        json_object *rule = json_object_array_get_idx(list.get(), i);
        if (text_of(rule, "priority") != std::to_string(priority))
            continue;
        std::string length = text_of(rule, "dstlen");
        out.push_back(text_of(rule, "src") + ">" + text_of(rule, "dst") +
                      (length.empty() ? "" : "/" + length) + " " + text_of(rule, "iif") + " " +
                      text_of(rule, "table"));
    }
    return out;
}

class rtnl_node : public testing::Test {
protected:
    void SetUp() override
    {
        if (!ip("link show dev lo") || !ip("link add nlt0 type bridge"))
            GTEST_SKIP() << "no network namespace of its own to change, or no bridges";
        ip("link del nlt0");
        descriptors_ = open_descriptors();
    }
    void TearDown() override
    {
        if (descriptors_) {
            EXPECT_EQ(open_descriptors(), descriptors_);
        }
    }

    log_capture log;

private:
    long descriptors_ = 0;
};

TEST_F(rtnl_node, links_are_created_once_and_destroyed)
{
    EXPECT_EQ(_ng_rtnl_iface_create(RTNL_KIND_BRIDGE, "br-t0", 0), 0);
    EXPECT_EQ(link_tells("br-t0", "info_kind", "linkinfo"), "bridge");
    const std::string index = link_tells("br-t0", "ifindex");
    log.take();
    EXPECT_EQ(_ng_rtnl_iface_create(RTNL_KIND_BRIDGE, "br-t0", 0), 0);
    EXPECT_EQ(log.take(), (lines{"NOTICE creating bridge iface 'br-t0'",
                                 "ERROR RTNETLINK answers: File exists (-17)"}));
    EXPECT_EQ(link_tells("br-t0", "ifindex"), index);
    EXPECT_EQ(ng_rtnl_iface_destroy("br-t0"), 0);
    EXPECT_EQ(link_tells("br-t0", "ifindex"), "");
    EXPECT_EQ(ng_rtnl_iface_destroy("br-t0"), -1);

    errno = 0;
    EXPECT_EQ(_ng_rtnl_iface_create(RTNL_KIND_INVALID, "any", 0), -1);
    EXPECT_EQ(errno, EOPNOTSUPP);
}

TEST_F(rtnl_node, names_of_every_length)
{
    for (size_t length = 0; length <= 20; length++) {
        const std::string name(length, 'n');
        const bool fits = length >= 2 && length <= 15;
        EXPECT_EQ(_ng_rtnl_iface_create(RTNL_KIND_BRIDGE, name.c_str(), 0), fits ? 0 : -1);
        EXPECT_EQ(ng_rtnl_iface_link_get_up(name.c_str(), true), false);
        if (fits) {
            EXPECT_EQ(link_tells(name, "ifname"), name);
            EXPECT_EQ(ng_rtnl_iface_set_up(name.c_str(), true), 0);
            EXPECT_TRUE(ng_rtnl_iface_link_get_up(name.c_str(), true));
        }
        EXPECT_EQ(ng_rtnl_iface_destroy(name.c_str()), fits ? 0 : -1);
        EXPECT_EQ(if_nametoindex(name.c_str()), 0u);
    }
    // A rule may name any interface that a name fits.
    for (size_t length : {1, 15, 16, 200}) {
        const std::string name(length, 'n');
        const bool fits = length <= 15;
        EXPECT_EQ(ng_rtnl_iface_rule_add(name.c_str(), 0, 0, 0, 20, 600), fits ? 0 : -1);
        EXPECT_EQ(rules(600), fits ? lines{"all> " + name + " 20"} : lines{});
        EXPECT_EQ(ng_rtnl_iface_rule_del(name.c_str(), 0, 0, 0, 20, 600), fits ? 0 : -1);
    }
}

TEST_F(rtnl_node, ports_come_to_bridges_and_go)
{
    ASSERT_TRUE(ip("link add br-a type bridge") && ip("link add br-b type bridge"));
    ASSERT_TRUE(ip("link add port0 type veth peer name port1"));
    EXPECT_EQ(ng_rtnl_bridge_enslave("br-a", "port0"), 0);
    EXPECT_EQ(ng_rtnl_bridge_enslave("br-a", "port0"), 0);
    EXPECT_EQ(link_tells("port0", "master"), "br-a");
    EXPECT_EQ(ng_rtnl_bridge_enslave("br-b", "port0"), 0);
    EXPECT_EQ(link_tells("port0", "master"), "br-b");
    EXPECT_EQ(ng_rtnl_bridge_release("port0"), 0);
    EXPECT_EQ(link_tells("port0", "master"), "");
    EXPECT_EQ(ng_rtnl_bridge_release("port0"), 0);

    errno = 0;
    EXPECT_EQ(ng_rtnl_bridge_enslave("br-a", "br-b"), -1);
    EXPECT_NE(errno, 0); // ELOOP or EINVAL, by the kernel's age
    EXPECT_EQ(ng_rtnl_bridge_enslave("br-a", "lo"), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ng_rtnl_bridge_enslave("port1", "port0"), -1);
    EXPECT_EQ(link_tells("port0", "master"), "");
    for (const char *name : {"br-a", "br-b", "port0"})
        EXPECT_EQ(ng_rtnl_iface_destroy(name), 0);
}

TEST_F(rtnl_node, links_go_up_and_down_and_run_when_the_other_end_does)
{
    ASSERT_TRUE(ip("link add up0 type veth peer name up1"));
    EXPECT_FALSE(ng_rtnl_iface_link_get_up("up0", true));
    EXPECT_EQ(ng_rtnl_iface_set_up("up0", true), 0);
    EXPECT_TRUE(link_has_flag("up0", "UP"));
    EXPECT_TRUE(ng_rtnl_iface_link_get_up("up0", true));
    // The kernel looks for the carrier in its own time.
    bool running = true;
    for (int tries = 0; running && tries < 200; tries++) {
        running = ng_rtnl_iface_link_get_up("up0", false);
        usleep(10000);
    }
    EXPECT_FALSE(running);
    EXPECT_EQ(ng_rtnl_iface_link_set_up("up1", true, true), 0);
    EXPECT_TRUE(link_has_flag("up0", "LOWER_UP"));
    EXPECT_TRUE(ng_rtnl_iface_link_get_retry("up0", false));
    EXPECT_EQ(ng_rtnl_iface_set_up("up0", false), 0);
    EXPECT_FALSE(link_has_flag("up0", "UP"));
    EXPECT_FALSE(ng_rtnl_iface_link_get_up("up0", true));
    EXPECT_EQ(ng_rtnl_iface_index_get_retry("up1"),
              (uint32_t)std::stoul(link_tells("up1", "ifindex")));
    EXPECT_EQ(ng_rtnl_iface_destroy("up0"), 0);
}

TEST_F(rtnl_node, vlans)
{
    ASSERT_TRUE(ip("link add long-br-name type bridge"));
    if (!ip("link add link long-br-name name probe type vlan id 7")) {
        ip("link del long-br-name");
        GTEST_SKIP() << "this kernel has no VLANs (the kernel lab has)";
    }
    EXPECT_EQ(ng_rtnl_iface_create_vlan("long-br-name", 4094), 0);
    EXPECT_EQ(ng_rtnl_iface_create_vlan("long-br-name", 4094), 0);
    EXPECT_EQ(link_tells("long-br-name.40", "link"), "long-br-name");
    EXPECT_NE(link_tells("long-br-name.40", "linkinfo").find("4094"), std::string::npos);
    EXPECT_EQ(ng_rtnl_iface_destroy("long-br-name"), 0);
}

TEST_F(rtnl_node, rules_are_added_once_listed_and_deleted)
{
    const struct {
        const char *iif;
        uint32_t src, dst;
        int dst_len, table, priority;
        const char *listed;
    } cases[] = {
        {"lo", 0, 0, 0, 20, 500, "all> lo 20"},
        {nullptr, 0, 0, 0, 10, -1, "all>  10"},
        {"eth7", 0x0a000001, 0xc0a8014d, 24, 300, 500, "10.0.0.1>192.168.1.0/24 eth7 300"},
        {nullptr, 0, 0xc0a8014d, 32, 0, 500, "all>192.168.1.77  main"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.listed);
        auto change = [&](decltype(ng_rtnl_iface_rule_add) *call) {
            return call(c.iif, c.src, c.dst, c.dst_len, c.table, c.priority);
        };
        EXPECT_EQ(change(ng_rtnl_iface_rule_add), 0);
        EXPECT_EQ(change(ng_rtnl_iface_rule_add), 0);
        EXPECT_EQ(rules(500), lines{c.listed});
        EXPECT_EQ(change(ng_rtnl_iface_rule_del), 0);
        EXPECT_EQ(rules(500), lines{});
        errno = 0;
        EXPECT_EQ(change(ng_rtnl_iface_rule_del), -1);
        EXPECT_EQ(errno, ENOENT);
    }
    EXPECT_EQ(ng_rtnl_iface_rule_add(nullptr, 0, 0x0a000001, 33, 20, 500), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rules(500), lines{});
}

TEST_F(rtnl_node, the_kernel_refuses_an_interface_that_is_gone)
{
    rtnl_handle rtnl;
    ASSERT_EQ(ng_rtnl_open(&rtnl, 0), 0);
    for (uint16_t type : {RTM_DELLINK, RTM_SETLINK, RTM_GETLINK}) {
        rtnl_link_request request = rtnl_link_request_make(type, NLM_F_REQUEST, 0x7ffffff0);
        rtnl_answer answer;
        errno = 0;
        EXPECT_EQ(ng_rtnl_send(&rtnl, &request.header, type == RTM_GETLINK ? &answer : nullptr),
                  -1);
        EXPECT_EQ(errno, ENODEV);
        EXPECT_EQ(log.take(), lines{"ERROR RTNETLINK answers: No such device (-19)"});
    }
    // A handle serves one request after the other.
    rtnl_link_request request = rtnl_link_request_make(RTM_GETLINK, NLM_F_REQUEST, 1);
    rtnl_answer answer;
    EXPECT_EQ(ng_rtnl_send(&rtnl, &request.header, &answer), 0);
    ng_rtnl_close(&rtnl);
    EXPECT_EQ(rtnl.fd, -1);
    EXPECT_EQ(ng_rtnl_send(&rtnl, &request.header, nullptr), -1);
}

TEST_F(rtnl_node, without_the_privilege_nothing_changes)
{
    pid_t child = fork();
    if (child == 0) {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2] = {};
        syscall(SYS_capset, &header, none);
        int faults = 0;
        faults += ng_rtnl_iface_set_up("lo", false) != -1 || errno != EPERM;
        faults += ng_rtnl_iface_rule_add("lo", 0, 0, 0, 20, 500) != -1 || errno != EPERM;
        faults += _ng_rtnl_iface_create(RTNL_KIND_BRIDGE, "br-p", 0) != -1 || errno != EPERM;
        faults += !ng_rtnl_iface_link_get_up("lo", true); // asking is free
        _exit(faults);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    int told = 0;
    for (const std::string &line : log.take())
        told += line == "ERROR RTNETLINK answers: Operation not permitted (-1)";
    EXPECT_EQ(told, 3);
    EXPECT_TRUE(link_has_flag("lo", "UP"));
}

TEST_F(rtnl_node, a_kernel_without_radios_or_mesh_is_told_apart_from_one_with_none)
{
    std::vector<ng_nl80211_iface> list(1);
    const int result = ng_nl80211_iface_list(&list);
    if (result == 0)
        GTEST_SKIP() << "this kernel has nl80211 (the kernel lab tests what it does)";
    EXPECT_EQ(result, -ENOENT);
    EXPECT_EQ(list.size(), 1u);
    ng_nl80211_listener listener = {};
    EXPECT_LT(ng_nl80211_listen_event(&listener, "mlme", nullptr, nullptr), 0);
    EXPECT_EQ(bat_check_neighbors(), 0u);
    bat_nlsock_close();
}
