# The whole simulated node runs in the guest as it does outside, in virtual time.

setsid sim/node run >"$OUT/story" 2>&1 &
node=$!
check "the node reaches the internet over its wire" \
    poll 60 grep 'UPSTREAM_NONE -> TARN_NET_UPSTREAM_WAN_STATE' "$OUT/story"
check "its daemon answers on the bus" poll 5 sim/node ubus call qnet.wired dump_state
sleep 600
check "it kept its upstream for ten minutes" test "$(grep -c ' upstream ' "$OUT/story")" = 1
check "no program of it ended" test "$(grep -c 'ended with status' "$OUT/story")" = 0
kill -INT "-$node"
wait "$node"
check "Ctrl-C ends it, although it began in the background" test $? = 130
