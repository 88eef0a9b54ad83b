# In procd's jail the daemon has the capabilities of its file alone: they do, and without each of them something breaks.
# lab-needs: openwrt/tarn_net/files

file=openwrt/tarn_net/files/tarn_net.capabilities.json
all=$(sed -n 's/.*"bounding": \[\(.*\)\].*/\1/p' "$file" | tr -d '" ' | tr '[:upper:]' '[:lower:]' | sed 's/cap_/+/g')
without() { echo "$all" | tr ',' '\n' | grep -vx "+$1" | paste -sd ,; }

TARN_NET=$PWD/sim/lab/confined CONFINED_TO=$all setsid sim/node run >"$OUT/story" 2>&1 &
node=$!
has_rules() { says 'lookup 10' sim/node enter ip rule show priority 500; }
check "with $all the node reaches the internet" \
    poll 60 grep 'UPSTREAM_NONE -> TARN_NET_UPSTREAM_WAN_STATE' "$OUT/story"
check "its rules lead to the wire" poll 20 has_rules
check "it takes settings" says '"success": true' sim/node ubus call qnet.wifi parse_config '{"params":{"enable":true}}'

daemon() { sim/node enter pidof tarn_net; }
another() { now=$(daemon) && [ "$now" != "$1" ]; }
# restart_with CAPABILITIES: the daemon ends and comes back with these.
restart_with() {
    before=$(daemon)
    sim/node enter sh -c "echo '$1' >/var/sim/confined; ip rule del priority 500 2>/dev/null; kill $before"
    poll 20 another "$before"
}
restart_with "$(without net_admin)"
sleep 30
refuse "without net_admin no rule leads anywhere" has_rules
restart_with "$all"
check "with it they are there again" poll 40 has_rules
kill -INT "-$node"
wait "$node" || true

# A gateway's delay and throughput are batctl's to measure, and batctl's frames are raw ones.
mesh a b
gateway=$(mac b to-a)
ping_with() { on a setpriv --no-new-privs --bounding-set "-all,$1" --inh-caps=-all batctl ping -c 1 -t 2 "$gateway"; }
check "with net_raw batctl reaches the gateway" poll 20 ping_with "$all"
refuse "without net_raw batctl does not" ping_with "$(without net_raw)"
