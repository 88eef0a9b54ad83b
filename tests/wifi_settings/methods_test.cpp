// The documents through the bus, into the running daemon.
#include "core/daemon_fixture.h"
#include "document.h"

namespace {

struct SettingsMethods : daemon_fixture {
    answer push(const std::string &json) { return call("qnet.wifi", "parse_config", json); }
    std::string dump(bool secrets)
    {
        const std::string document =
            call("qnet.wifi", "dump_state", secrets ? R"({"include_secrets":true})" : "{}")
                .document;
        return document.substr(0, document.find(R"(,"state":{)"));
    }
};

constexpr char TAKEN[] = R"({"success":true,"messages":[]})";

TEST_F(SettingsMethods, EveryExampleIsTakenAndShown)
{
    for (const char *name : {"home", "office", "guest_portal", "mesh_repeater", "limits"}) {
        const answer reply = push(example(name));
        EXPECT_EQ(reply.status, 0) << name;
        EXPECT_EQ(reply.document, TAKEN) << name;
    }
    const std::string shown = dump(true);
    EXPECT_NE(shown.find(R"("node_id":2147483647)"), std::string::npos);
    EXPECT_NE(shown.find("02:04:c0:00:03:ff"), std::string::npos); // the last of the ACL
    EXPECT_NE(shown.find("181]"), std::string::npos);              // and of the DFS channels
}

TEST_F(SettingsMethods, ARefusedDocumentIsAnsweredWithItsReasonsAndChangesNothing)
{
    ASSERT_EQ(push(example("office")).status, 0);
    const std::string before = dump(true);
    const std::string uci = run("uci export").output;
    const answer refused =
        push(R"({"params":{"node_id":1,"ssids":[{"index":1,"ssid":"x"},{"index":5}]}})");
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.document, R"({"success":false,"messages":["Invalid ssid index: 4",)"
                                R"("Failed to parse ssids data"]})");
    for (const char *object : {"qnet.wifi", "qnet.wired"})
        for (const char *without : {"{}", R"({"params":7})", R"({"enable":true})"}) {
            const answer reply = call(object, "parse_config", without);
            EXPECT_EQ(reply.status, 2) << without;
            EXPECT_NE(reply.document.find("parse_config takes it as the table 'params'"),
                      std::string::npos)
                << reply.document;
        }

    // What libubox's JSON would not let through: a thousand levels, a megabyte, broken lengths.
    json_message deep;
    std::vector<void *> open = {blobmsg_open_table(&deep, "params")};
    for (int i = 0; i < 1000; i++)
        open.push_back(blobmsg_open_table(&deep, "mesh"));
    for (; !open.empty(); open.pop_back())
        blobmsg_close_table(&deep, open.back());
    EXPECT_EQ(call("qnet.wifi", "parse_config", deep.head).status, 2);
    const std::string large =
        R"({"params":{"regulatory":{"country":")" + std::string(1000000, 'x') + "\"}}}";
    EXPECT_EQ(push(large).status, 2);
    json_message broken(R"({"params":{"node_id":5,"enable":true}})");
    auto *params = static_cast<blob_attr *>(blob_data(broken.head));
    auto *member = static_cast<blob_attr *>(blobmsg_data(params));
    blob_set_raw_len(member, 3);
    EXPECT_EQ(call("qnet.wifi", "parse_config", broken.head).status, 2);

    EXPECT_EQ(dump(true), before);
    EXPECT_EQ(run("uci export").output, uci);
    EXPECT_EQ(push(example("home")).document, TAKEN);
}

TEST_F(SettingsMethods, WhatIsPassedOverIsNamedToTheCaller)
{
    const struct {
        const char *object, *params, *named;
    } cases[] = {
        {"qnet.wifi", R"("node_id":1,"ssid":[{"index":1}],"mesh":{"batman":{"penalty":2}},
            "ssids":[{"index":1},{"index":2,"psk":"CANARY","bands":[{"band":"5GHz","on":1}]}])",
         "no setting has this name: 'ssid', 'mesh.batman.penalty', 'ssids[1].psk', "
         "'ssids[1].bands[0].on'"},
        {"qnet.wifi", R"("enable":1,"node_id":"1","save_orphans":{},"mesh":{"batman":[]},
            "regulatory":{"dfs":{"channels":["52"]}},"ssids":[{"index":1,"ssid":null}])",
         "the value is of another type: 'enable', 'node_id', 'save_orphans', 'mesh.batman', "
         "'ssids[0].ssid'"},
        {"qnet.wifi", R"("node_id":1,"a":1,"b":1,"c":1,"d":1,"e":1,"f":1,"g":1,"h":1,"i":1)",
         "no setting has this name: 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h' and 1 more"},
        {"qnet.wired", R"("igmp_proxy":false,"inet_test":{"target":"x","test_interval":9})",
         "no setting has this name: 'inet_test.target'"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(
            call(c.object, "parse_config", std::string("{\"params\":{") + c.params + "}}").document,
            R"({"success":true,"messages":["Passed over, as )" + std::string(c.named) + "\"]}");
}

TEST_F(SettingsMethods, SecretsStayOutOfLogEventsAndPlainDumps)
{
    std::string json = R"({"params":{"radios":[{"band":"2.4GHz","channel":1},
        {"band":"5GHz","channel":36}],"mesh":{"key":"CANARY-mesh","psk":"CANARY-name","hop_penalty":"CANARY-place",
        "batman":{"key":"CANARY-odd","hop_penalty":"CANARY-type"}},
        "ssids":[{"index":1,"enable":true,"ssid":"s","enc":"psk2","key":"CANARY-key",
        "radius_key":"CANARY-radius","radius_acct_key":"CANARY-acct","roaming_domain":"4f57",
        "roaming_key":"CANARY-roaming","bands":[{"band":"5GHz","ssid":"s5","key":"CANARY-band","password":"CANARY-other",
        "enable":["CANARY-list"]}]}]})";
    event_log events(stranger, "*");
    ASSERT_EQ(push(json + "}").status, 0);
    for (const char *fault :
         {R"(,"key":["CANARY-type"]})", R"(,"orphan_connect":{"key":{"x":"CANARY"}}})", "}"}) {
        std::string odd = json.substr(0, json.rfind('}')) + fault + "}";
        odd.replace(odd.find("\"psk2\""), 6, "{\"key\":\"CANARY-nested\"}");
        (void)push(odd);
    }
    std::string nested = json + "}";
    nested.replace(nested.find("\"CANARY-mesh\""), 13, "[\"CANARY-list\",{\"a\":\"CANARY\"}]");
    (void)push(nested);
    settle();

    const std::string shown = dump(true);
    for (const char *secret : {"mesh", "key", "radius", "acct", "roaming"})
        EXPECT_NE(shown.find(std::string("CANARY-") + secret), std::string::npos) << secret;
    std::string plain = dump(false);
    const size_t roaming = plain.find(R"("roaming_key":"CANARY-roaming")");
    ASSERT_NE(roaming, std::string::npos);
    plain.erase(roaming, strlen(R"("roaming_key":"CANARY-roaming")"));
    EXPECT_EQ(plain.find("CANARY"), std::string::npos);
    for (const std::string &others :
         {call("qnet.wifi", "gen_checkin").document, call("qnet.wifi", "health_check").document,
          run("tarn-status --json").output}) {
        EXPECT_NE(others.find("health"), others.find("upstream")) << "nothing was answered";
        EXPECT_EQ(others.find("CANARY"), std::string::npos);
    }

    EXPECT_NE(log().find(R"("key":"***","psk":"***")"), std::string::npos) << "nothing was logged";
    EXPECT_NE(log().find(R"("band":"5GHz","ssid":"s5","key":"***")"), std::string::npos);
    EXPECT_EQ(log().find("CANARY"), std::string::npos);
    for (const received_event &event : events.all)
        EXPECT_EQ(event.document.find("CANARY"), std::string::npos) << event.type;
}

TEST_F(SettingsMethods, TarnStatusShowsTheNodeOnOneScreen)
{
    const auto status_of = [](const std::string &command) { return run(command).status; };
    ASSERT_EQ(push(R"({"params":{"ssids":[{"index":1,"enable":true,"ssid":"a\u009b31mb"},
        {"index":2,"enable":false},{"index":3,"enable":false},{"index":4,"enable":false}]}})")
                  .status,
              0);
    EXPECT_EQ(run("tarn-status | sed -E 's/[0-9]+ s/N s/; / in N s$/d'").output,
              "upstream   none yet, for N s\n"
              "           0 of 3 failures tolerated\n"
              "radio 0    2.4GHz    on no channel\n"
              "           a??31mb (0)\n"
              "radio 1    5GHz      on no channel\n"
              "           a??31mb (0)\n"
              "radio 2    scanning  on no channel\n"
              "health     no problem known\n");
    EXPECT_EQ(status_of("tarn-status --help && tarn-status --version && tarn-status --json"), 0);
    EXPECT_EQ(status_of("tarn-status --jason"), 2);
    EXPECT_EQ(status_of("tarn-status --watch --json"), 2);
    tarn_net.reset();
    EXPECT_EQ(status_of("tarn-status"), 1) << "the daemon is away";
}

TEST_F(SettingsMethods, AnOverrideOfARefusedDocumentIsNone)
{
    ASSERT_EQ(push(example("home")).status, 0);
    const std::string local = run("uci show tarn_net.local").output;
    EXPECT_EQ(
        push(R"({"params":{"lonely_friend":true,"ssids":[{"index":1,"ssid":"\u0001"}]}})").document,
        R"({"success":false,"messages":["'ssid' of settings_ssid1 holds a control character",)"
        R"("Failed to write uci batch config"]})");
    settle();
    EXPECT_EQ(run("uci show tarn_net.local").output, local) << "an override nobody asked for";
}

TEST_F(SettingsMethods, TheWiredDocumentIsTakenWholeOrNotAtAll)
{
    const auto push_wired = [&](const std::string &params) {
        return call("qnet.wired", "parse_config", R"({"params":)" + params + "}");
    };
    const auto uci = [](const std::string &what) { return run("uci -q show " + what).output; };
    const std::string before = uci("tarn_net") + uci("igmpproxy");
    const auto targets = [](const std::string &url, int count) {
        std::string all = R"({"inet_test":{"targets":[")" + url;
        for (int i = 1; i < count; i++)
            all += "\",\"" + url;
        return all + "\"]}}";
    };
    const std::string longest = "http://" + std::string(248, 'u');
    const std::pair<std::string, const char *> refused[] = {
        {targets(longest + "u", 1), "'targets' may only hold http and https URLs"},
        {targets(longest, 33), "'targets' may hold 32 URLs, not 33"},
        {R"({"lan_bridge":"br0","inet_test":{"targets":["ftp://a"]}})",
         "'targets' may only hold http and https URLs"},
        {R"({"inet_test":{"test_interval":3,"failure_tolerance":0}})",
         "'failure_tolerance' must be 1 to 1000, not 0"},
        {R"({"inet_test":{"test_interval":86401}})",
         "'test_interval' must be 0 to 86400, not 86401"},
        {R"({"lan_bridge":"br0;reboot","inet_test":{"test_interval":3}})",
         "'lan_bridge' is no interface name"},
        {R"({"lan_bridge":"br0","wired_client":{"disable":true,"ssid":5}})",
         "'ssid' must be 0 to 4, not 5"},
        {R"({"lan_bridge":"a-very-long-bridge"})", "'lan_bridge' is no interface name"},
        {R"({"inet_test":{"targets":["http://x\n"]}})",
         "'targets' may only hold http and https URLs"},
        {R"({"inet_test":{"targets":["http://"]}})", "'targets' may only hold http and https URLs"},
    };
    for (const auto &[params, message] : refused) {
        const answer reply = push_wired(params);
        EXPECT_EQ(reply.status, 2) << params;
        EXPECT_EQ(reply.document,
                  R"({"success":false,"messages":[")" + std::string(message) + "\"]}");
    }
    run("mount --bind /etc/config/igmpproxy /etc/config/igmpproxy"); // cannot be replaced
    EXPECT_EQ(push_wired(R"({"lan_bridge":"br0","igmp_proxy":true})").status, 9);
    run("umount /etc/config/igmpproxy");
    EXPECT_EQ(push_wired(R"({"wired_client":{},"inet_test":{}})").document, TAKEN);
    EXPECT_EQ(push_wired("{}").document, TAKEN) << "nothing is given";
    EXPECT_EQ(uci("tarn_net") + uci("igmpproxy"), before);

    EXPECT_EQ(push_wired(targets(longest, 32)).document, TAKEN);
    run("mv /etc/config/igmpproxy /tmp"); // no fault, and nothing to be said of it
    EXPECT_EQ(push_wired(R"({"igmp_proxy":true})").document, TAKEN);
    run("mv /tmp/igmpproxy /etc/config");
    EXPECT_EQ(push_wired(R"({"inet_test":{"targets":["http://203.0.113.80","https://b/c"],
        "failure_tolerance":5,"test_interval":60},"lan_bridge":"br-lan-of-15-by",
        "wired_client":{"disable":true,"ssid":2},"igmp_proxy":true})")
                  .document,
              TAKEN);
    const std::string shown = call("qnet.wired", "dump_state").document;
    EXPECT_NE(
        shown.find(R"({"settings":{"inet_test":{"targets":["http://203.0.113.80","https://b/c"],)"
                   R"("failure_tolerance":5,"test_interval":60},"lan_bridge":"br-lan-of-15-by",)"
                   R"("wired_client":{"disable":true,"ssid":2},"igmp_proxy":true})"),
        std::string::npos)
        << shown;
    // What a document omits stays; an empty bridge name takes it away.
    EXPECT_EQ(push_wired(R"({"lan_bridge":"","inet_test":{"test_interval":9}})").document, TAKEN);
    EXPECT_NE(call("qnet.wired", "dump_state")
                  .document.find(R"("failure_tolerance":5,"test_interval":9},"wired_client")"),
              std::string::npos);
    EXPECT_EQ(run("uci changes").output, "");
}

} // namespace
