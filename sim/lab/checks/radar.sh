# Radar and channel switches on a simulated radio, as the daemon of the simulated node takes them.
# lab-limit: 7200

story_has() { grep -E -e "$1" "$OUT/story"; }
# told PATTERN: how often it stands in the story by now; more_than COUNT PATTERN
told() { story_has "$1" | wc -l; }
more_than() { [ "$(told "$2")" -gt "$1" ]; }
cac() { echo "event .*dfs.cac_result.*\"success\": *$1, *\"message\": *\"$2\""; }
logged() { sim/node enter cat /tmp/debug_tarn_net.log; }

# A kernel without wireless modules, and nothing that loads them of itself; the next file finds all as it was.
read -r loader </proc/sys/kernel/modprobe
echo >/proc/sys/kernel/modprobe
trap 'echo "$loader" >/proc/sys/kernel/modprobe; modprobe batman_adv' EXIT
check "the wireless modules can go" rmmod batman_adv cfg80211
setsid sim/node run >"$OUT/story" 2>&1 &
node=$!
check "the node starts" poll 60 story_has 'NONE -> TARN_NET_UPSTREAM_WAN_STATE'
sleep 120
logged >"$OUT/log"
check "without radios the daemon says so, and why, once" test "$(grep -c \
    -e "ERROR: nl80211: unable to listen to the group 'mlme': Object not found" \
    -e 'ERROR: DFS: failed to allocate netlink callbacks' "$OUT/log")" = 2

# in_node COMMAND...: in its network, with this check's files.
first=$(pgrep -P "$(sed -n 1p build/node/lock)" | head -n 1)
in_node() { nsenter --net="/proc/$first/ns/net" "$@"; }

# radio: one in the node's network; access_point_on CHANNEL: hostapd on it, which leave ends.
radio() { radios US 1 && iw phy "$(phy wlan0)" set netns "$first"; }
access_point_on() {
    printf '%s\n' interface=wlan0 driver=nl80211 ctrl_interface=/run/hostapd ssid=lab country_code=US ieee80211d=1 \
        ieee80211h=1 hw_mode=a "channel=$1" ieee80211n=1 wmm_enabled=1 >/run/wlan0.conf
    in_node hostapd -B -f "$OUT/hostapd.log" -P /run/hostapd.pid /run/wlan0.conf
}
leave() { kill "$(cat /run/hostapd.pid)" && sleep 2; }
hit() { echo 1 | tee /sys/kernel/debug/ieee80211/*/hwsim/dfs_simulate_radar; }
override() { sim/node uci -q get tarn_net.local.radio_override; }

check "a radio comes into the node's network" radio
sleep 40 # the listener looks every 30 s
check "hostapd starts on a radar channel" access_point_on 56
sleep 5
check "and leaves it during the availability check" leave
check "which is told" poll 10 story_has "$(cac false 'CAC aborted')"
check "hostapd starts on another one" access_point_on 52
check "the end of the check is told" poll 100 story_has "$(cac true 'completed successfully')"
refuse "it is no reason for an override" override
check "radar comes" hit
check "it is told" poll 10 story_has "$(cac false 'radar detected during CAC')"
check "and logged" poll 5 story_has 'NOTICE DFS: Radar detected on 5260 MHz, chan = 52'
check "hostapd leaves the channel" poll 100 story_has 'NOTICE DFS: (Switched to|CAC finished on) [0-9]+ MHz, chan = [0-9]+'
check "an override is recorded" poll 5 override
check "with its reason" says '^dfs channel switch$' sim/node uci get tarn_net.local.override_reason
check "the cloud is asked for a delayed check-in" poll 10 story_has 'checkin .*"delayed": *true'
check "the dump says so" says '"dfs_event_detected": true' sim/node ubus call qnet.wifi dump_state
before=$(told 'event .*dfs\.')
sleep 1900
check "the end of the non-occupancy period is the kernel's alone" test "$(told 'event .*dfs\.')" = "$before"
iw_channels() { in_node iw "$(in_node iw dev | head -n 1)" channels | grep -A 4 '5260 MHz'; }
check "the channel may be checked again" poll 300 says 'DFS state: usable' iw_channels

# More events than the socket holds, while the daemon does not read.
kill -STOP "$(pgrep -x tarn_net | head -n 1)"
yes 'deauthenticate ff:ff:ff:ff:ff:ff' | head -n 1500 | in_node hostapd_cli -p /run/hostapd -i wlan0 >/dev/null
kill -CONT "$(pgrep -x tarn_net | head -n 1)"
check "an overrun makes a new listener" poll 20 story_has 'WARNING DFS: nl_recvmsgs\(\) returned .*restarting'
before=$(told "$(cac false 'radar detected during CAC')")
check "radar comes again" hit
check "the new listener hears of it" poll 10 more_than "$before" "$(cac false 'radar detected during CAC')"

# The wireless modules are loaded anew: sockets are told nothing, and hear nothing.
check "hostapd ends" leave
check "the wireless modules go" rmmod mac80211_hwsim mac80211 cfg80211
sleep 40
check "and come back" radio
sleep 40
before=$(told "$(cac true 'completed successfully')")
check "hostapd starts again" access_point_on 60
check "the daemon hears of it" poll 100 more_than "$before" "$(cac true 'completed successfully')"
leave
kill -INT "-$node"
wait "$node"
check "the node was well all the time" test "$(told 'ended with status')" = 0
