# The whole simulated node runs in the guest as it does outside, in virtual time.
# lab-needs: openwrt/tarn_net/files/acl.d

setsid sim/node run >"$OUT/story" 2>&1 &
node=$!
check "the node reaches the internet over its wire" \
    poll 60 grep 'UPSTREAM_NONE -> TARN_NET_UPSTREAM_WAN_STATE' "$OUT/story"
check "its daemon answers on the bus" poll 5 sim/node ubus call qnet.wired dump_state

# as USER ARGS: ubus as somebody without privileges; the package's access lists say what they may do.
as() {
    as_user=$1
    shift
    sim/node enter setpriv --reuid "$as_user" --regid "$as_user" --clear-groups ubus "$@"
}
SECRETS='{"include_secrets":true}'
check "the reader sees the state" as tarn_read call qnet.wifi dump_state
refuse "the reader sees no secret" as tarn_read call qnet.wifi dump_state "$SECRETS"
refuse "nor does a web session" sim/node ubus call qnet.wifi dump_state '{"include_secrets":true,"ubus_rpc_session":"0"}'
check "the super-user does" sim/node ubus call qnet.wifi dump_state "$SECRETS"
refuse "the reader cannot push" says '"success": true' as tarn_read call qnet.wifi parse_config '{"params":{"enable":true}}'
check "the agent can" says '"success": true' as tarn_push call qnet.wifi parse_config '{"params":{"enable":true}}'
refuse "the agent sees no secret" as tarn_push call qnet.wifi dump_state "$SECRETS"
check "the agent says what became of it" as tarn_push send parse_config_status '{"success":true}'
refuse "it sends no other event" as tarn_push send qnet.other '{}'
refuse "others are told of nothing" says . as daemon list

sleep 600
check "it kept its upstream for ten minutes" test "$(grep -c ' upstream ' "$OUT/story")" = 1
check "no program of it ended" test "$(grep -c 'ended with status' "$OUT/story")" = 0
kill -INT "-$node"
wait "$node"
check "Ctrl-C ends it, although it began in the background" test $? = 130
