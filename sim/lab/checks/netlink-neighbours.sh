# A node with 2 to 64 neighbours counts them all, and what a count costs against running batctl.
# lab-wall-limit: 300

PROBE=$TARN_BUILD/tools/netlink_probe/netlink-probe

# peer NUMBER: one more neighbour of the hub. Originators are rare: 64 nodes that repeat each other are a crowd.
peer() {
    node "n$1"
    ip -n "n$1" link add bat0 up type batadv
    on "n$1" batctl orig_interval 5000
    wire hub "to-n$1" "n$1" hub
    ip -n hub link set "to-n$1" master bat0
    ip -n "n$1" link set hub master bat0
}

node hub
ip -n hub link add bat0 up type batadv
on hub batctl orig_interval 5000
have=0
for want in 2 8 16 32 64; do
    while [ "$have" -lt "$want" ]; do
        have=$((have + 1))
        peer "$have"
    done
    check "$want neighbours are counted" poll 60 says "^neighbors $want " on hub "$PROBE" neighbors
    check "batctl counts as many" on hub "$PROBE" compare 20
    echo "        $check_said"
    echo "$check_said" >>"$OUT/cost"
done
check "a count costs less than running batctl" awk -F= '$NF >= 1 { bad = 1 } END { exit bad }' "$OUT/cost"
