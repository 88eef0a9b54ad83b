# nl80211 on simulated radios: interfaces, stations, surveys, the radar state of channels, and the event listener.

PROBE=$TARN_BUILD/tools/netlink_probe/netlink-probe

# channel_is MHZ STATE: of wlan0's radio.
channel_is() { says "^channel $(phy wlan0) $1 .*dfs=$2 " "$PROBE" radios; }

# frequency_of INTERFACE: as iw says it.
frequency_of() { iw dev "$1" info | sed -n 's/.*channel [0-9]* (\([0-9]*\) MHz.*/\1/p'; }

# event_seen PATTERN: the listener printed it.
event_seen() { grep -E -e "^event $1" "$OUT/events"; }

# counted PATTERN COMMAND...: how many lines of COMMAND match.
counted() {
    counted_pattern=$1
    shift
    "$@" | grep -c -e "$counted_pattern"
}

check "radios start under a country's rules" radios US 3
index=$(cat /sys/class/net/wlan0/ifindex)
wiphy=$(cat /sys/class/net/wlan0/phy80211/index)
iw phy "$(phy wlan0)" channels >"$OUT/channels"
"$PROBE" radios >"$OUT/radios"
check "every channel of the radio is told" test \
    "$(counted "^channel $(phy wlan0) " cat "$OUT/radios")" = "$(counted '^[[:space:]]*\* [0-9]* MHz' cat "$OUT/channels")"
check "and the radar state of as many" test \
    "$(counted "^channel $(phy wlan0) .*dfs=usable" cat "$OUT/radios")" = "$(counted 'DFS state: usable' cat "$OUT/channels")"
check "a radar channel must be checked before use" channel_is 5260 usable
check "a plain channel has no such state" channel_is 5180 -

"$PROBE" listen 120 >"$OUT/events" &
listener=$!
check "the listener starts" poll 5 grep listening "$OUT/events"
check "an access point on a radar channel starts" access_point wlan0 52
check "it waits through the channel availability check" poll 100 ap_said wlan0 "AP-ENABLED"
check "the end of the check is received" poll 5 \
    event_seen "94 well_formed=1 phy=$wiphy index=$index radar=1 frequency=5260 width=20 center=5260"
check "the channel is available" channel_is 5260 available
check "the access point is told" says \
    "^iface wlan0 index=$index phy=$wiphy type=\"AP\" mac=$(cat /sys/class/net/wlan0/address) frequency=5260 width=20 center=5260" \
    "$PROBE" ifaces
radar wlan0
check "radar is received, for the radio" poll 5 \
    event_seen "94 well_formed=1 phy=$wiphy index=- radar=0 frequency=5260"
check "the start of the switch is received" poll 5 event_seen "110 .* index=$index .*count=[0-9]* quiet=1"
check "the switch is received" poll 10 event_seen "88 well_formed=1 phy=- index=$index radar=- frequency=[0-9]"
check "the channel is barred" channel_is 5260 unavailable
poll 10 ap_said wlan0 "AP-CSA-FINISHED" >/dev/null
check "the new channel is told" says "^iface wlan0 .* frequency=$(frequency_of wlan0) " "$PROBE" ifaces

check "a second access point starts" access_point wlan1 36
ip link set wlan2 up
# By its address: after the radar the other access point, of the same name, may be on this channel as well.
iw dev wlan2 connect lab 5180 "$(cat /sys/class/net/wlan1/address)"
station=$(cat /sys/class/net/wlan2/address)
check "its station is told" poll 20 says "^station $station signal=-[0-9]* " "$PROBE" stations wlan1
# More may come in between the two looks.
same_bytes() {
    bytes=$(iw dev wlan1 station dump | sed -n 's/.*rx bytes:[[:space:]]*//p')
    says "^station $station .* rx_bytes=$bytes " "$PROBE" stations wlan1
}
check "with the bytes received from it" poll 10 same_bytes
check "a survey tells as many channels as iw does" test \
    "$(counted '^survey ' "$PROBE" survey wlan2)" = "$(counted frequency iw dev wlan2 survey dump)"
check "with noise and times" says '^survey 5180 .*noise=-[0-9]* active=[1-9][0-9]* busy=[0-9]* ' "$PROBE" survey wlan2
iw dev wlan2 disconnect
check "a station that left is told no more" poll 10 says '^none' sh -c \
    "'$PROBE' stations wlan1 | grep . || echo none"
gone=$(cat /sys/class/net/wlan2/ifindex)
iw dev wlan2 del
check "the stations of an interface that vanished" says '^gone' "$PROBE" stations "$gone"
check "its survey" says '^gone' "$PROBE" survey "$gone"
refuse "it is not listed" says '^iface wlan2 ' "$PROBE" ifaces
kill "$listener"

# Each frame sent by hostapd is one event. More of them than the socket holds, while nobody reads:
"$PROBE" listen 60 30 >"$OUT/flood" &
listener=$!
poll 5 grep listening "$OUT/flood" >/dev/null
yes 'deauthenticate ff:ff:ff:ff:ff:ff' | head -n 1500 | hostapd_cli -p /run/hostapd -i wlan1 >/dev/null
check "lost events are an error" poll 60 grep -E 'resync after [0-9]+ events: Out of memory' "$OUT/flood"
check "listening goes on" poll 5 test "$(grep -c listening "$OUT/flood")" = 2
sleep 1
before=$(grep -c '^event' "$OUT/flood")
hostapd_cli -p /run/hostapd -i wlan1 deauthenticate ff:ff:ff:ff:ff:ff >/dev/null
sleep 1
check "and receives what comes then" test "$(grep -c '^event 60' "$OUT/flood")" -gt "$before"
wait "$listener"
check "the listener ends well" test $? = 0
check "one overrun, one error" test "$(grep -c resync "$OUT/flood")" = 1
