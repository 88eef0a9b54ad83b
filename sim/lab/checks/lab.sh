# The lab itself: what other check files take for granted.
# lab-limit: 7200

now_s
began=$now
sleep 3600
now_s
check "an idle hour passes in the guest" test $((now - began)) -ge 3600

# The sandbox of the simulated access point needs all of these, for root and for an ordinary user.
own_root() {
    unshare "$@" --mount --net --ipc --pid --fork sh -ec '
        mount -t proc proc /proc
        mount -t tmpfs tmpfs /mnt
        mkdir /mnt/old
        cd /mnt
        pivot_root . old
        cd /
        [ "$(echo *)" = old ]'
}
check "root gets a root file system of its own" own_root
check "an ordinary user gets one" setpriv --reuid 1000 --regid 1000 --clear-groups \
    unshare --user --map-root-user sh -c "$(command -v unshare) --mount --net --pid --fork mount -t proc proc /proc"

mesh a b
check "mesh neighbours see each other" poll 10 says "$(mac b to-a)" on a batctl neighbors
check "the mesh finds a route" poll 10 says "^ \* $(mac b to-a)" on a batctl originators -H
for peer in a:1 b:2; do
    ip -n "${peer%:*}" link add link bat0 name bat0.11 type vlan id 11
    ip -n "${peer%:*}" addr add "10.11.0.${peer#*:}/24" dev bat0.11
    ip -n "${peer%:*}" link set bat0.11 up
done
check "a VLAN on the mesh carries traffic" poll 20 on a ping -q -c 1 -W 1 10.11.0.2
on b nft -f - <<'EOT'
table inet silence {
    chain in { type filter hook input priority 0; iifname "bat0.11" ip saddr 10.11.0.1 counter drop; }
}
EOT
refuse "nftables silences a peer" on a ping -q -c 2 -W 1 10.11.0.2
check "nftables counted what it dropped" says 'counter packets [1-9]' on b nft list ruleset
on b nft delete table inet silence
check "the peer answers again" on a ping -q -c 1 -W 1 10.11.0.2
on b tc qdisc add dev bat0.11 root netem delay 300ms
check "a delay on a link is felt" says 'time=3[0-9][0-9]\.' on a ping -c 1 -W 1 10.11.0.2

check "radios start under a country's rules" radios US 2
check "an access point on a radar channel starts" access_point wlan0 52
check "it waits through the channel availability check" poll 100 ap_said wlan0 "AP-ENABLED"
check "the check took a minute" ap_said wlan0 "cac_time=60s"
radar wlan0
check "radar drives it off the channel" poll 10 ap_said wlan0 "AP-CSA-FINISHED"
iw phy "$(phy wlan0)" channels >"$OUT/channels"
check "the channel is barred" says 'DFS state: unavailable' grep -A 4 '5260 MHz' "$OUT/channels"
