# The kernel access layer on a real mesh: links, VLANs and bridges, and the neighbours of bat0.
# lab-needs: build/tests/netlink/netlink_node_test

PROBE=$TARN_BUILD/tools/netlink_probe/netlink-probe

"$TARN_BUILD/tests/netlink/netlink_node_test" >"$OUT/node_test" 2>&1 &&
    ! grep -q 'SKIPPED.*rtnl_node.vlans' "$OUT/node_test"
check "links, rules and VLANs as iproute2 sees them" test $? = 0

# neighbors NODE NUMBER: NUMBER are counted there, by the layer and by batctl.
neighbors() {
    says "^neighbors $2 " on "$1" "$PROBE" neighbors &&
        [ "$(on "$1" batctl neighbors -n -H | wc -l)" = "$2" ]
}

refuse "without bat0 there is no neighbour" "$PROBE" neighbors
check "and the reason is told" says "Unable to find 'bat0' iface" "$PROBE" neighbors

mesh a b c
check "the middle of three sees two neighbours" poll 20 neighbors b 2
check "each end sees one" poll 20 neighbors a 1
check "the other end too" poll 20 neighbors c 1
ip -n a link del bat0
ip -n a link add bat0 type dummy
refuse "an interface that is no mesh has no neighbour" on a "$PROBE" neighbors
check "and the error hidden in the end of the answer is told" \
    says "Got error: No such device" on a "$PROBE" neighbors

# The other algorithm tells more of each neighbour.
for peer in v w; do
    node "$peer"
    on "$peer" batctl routing_algo BATMAN_V
    ip -n "$peer" link add bat0 up type batadv
done
mesh_join v w
check "two nodes see each other with BATMAN_V" poll 20 neighbors v 1

# A VLAN of the mesh as a bridge port carries traffic, and is gone when released or destroyed.
for peer in b:1 c:2; do
    name=${peer%:*}
    check "$name: VLAN 11 of the mesh" on "$name" "$PROBE" vlan bat0 11
    check "$name: once more" on "$name" "$PROBE" vlan bat0 11
    check "$name: it is one" says 'vlan protocol 802.1Q id 11' ip -n "$name" -d link show dev bat0.11
    ip -n "$name" link add br-ssid1 type bridge
    ip -n "$name" addr add "10.11.0.${peer#*:}/24" dev br-ssid1
    check "$name: it becomes a port" on "$name" "$PROBE" enslave br-ssid1 bat0.11
    check "$name: it comes up" on "$name" "$PROBE" up bat0.11
    check "$name: its bridge comes up" on "$name" "$PROBE" up br-ssid1
done
check "traffic passes bridge, VLAN and mesh" poll 20 on b ping -q -c 1 -W 1 10.11.0.2
check "the port is released" on c "$PROBE" release bat0.11
refuse "no traffic passes" on b ping -q -c 2 -W 1 10.11.0.2
check "the VLAN is destroyed" on c "$PROBE" destroy bat0.11
refuse "it is gone" ip -n c link show dev bat0.11
check "the largest VLAN id" on c "$PROBE" vlan bat0 4094
refuse "one above is refused" on c "$PROBE" vlan bat0 4095
check "the mesh itself may be a port" on c "$PROBE" enslave br-ssid1 bat0
check "a VLAN goes with its mesh" on c "$PROBE" destroy bat0
refuse "the VLAN went" ip -n c link show dev bat0.4094
