# What the package brings beside the daemon does on a router's shell what it is there for. The shell libraries that it
# finds there are stood in for.
# lab-needs: openwrt/tarn_net/files examples

files=$PWD/openwrt/tarn_net/files
mkdir -p /lib/functions /usr/share/libubox
cat >/lib/functions.sh <<'END'
config_load() { package=$1; }
config_get() { eval "$1=\$(uci -q get $package.$2.$3)"; }
config_foreach() {
    for section in $(uci -q show "$package" | sed -n "s/^$package\.\([^.=]*\)=$2\$/\1/p"); do "$1" "$section"; done
}
END
echo 'get_mac_label() { echo 02:00:00:00:00:07; }' >/lib/functions/system.sh
cat >/usr/share/libubox/jshn.sh <<'END'
json_put() { case $json in *[{[]) ;; *) json=$json, ;; esac; json=$json${1:+\"$1\":}$2; }
json_init() { json="{"; }
json_add_string() { json_put "$1" "\"$2\""; }
json_add_int() { json_put "$1" "$2"; }
json_add_boolean() { json_put "$1" "$([ "$2" = 1 ] && echo true || echo false)"; }
json_add_object() { json_put "${1:-}" "{"; }
json_add_array() { json_put "$1" "["; }
json_close_object() { json="$json}"; }
json_close_array() { json="$json]"; }
json_dump() { echo "$json}"; }
END
cat >/lib/rc.common <<'END'
procd_open_instance() { :; }
procd_close_instance() { :; }
procd_set_param() {
    case $1 in command | respawn | stdout | stderr | limits | capabilities | no_new_privs) echo "$@" ;; *) exit 1 ;; esac
}
procd_add_jail() { echo "jail $1"; }
procd_add_reload_trigger() { echo "reload $1"; }
. "$1" && "$2"
END

# first_boot BEFORE: what the board's description is after the script, and what the daemon's reader makes of it.
# shellcheck disable=SC2016
first_boot() {
    sim/sandbox/run busybox ash -c 'none() { rm -r /etc/tarn; }
        bands() { n=0; for band in "$@"; do uci set wireless.radio$n.band=$band; n=$((n + 1)); done; }
        '"$1"'
        (. "$0") || echo "to be run again"
        cat /etc/tarn/platform.json && tarn-settings --platform /etc/tarn/platform.json check examples/home.json' \
        "$files/tarn_net.defaults" 2>&1
}
check "a board that is described stays so" says '"model": "SIM-3R"' first_boot :
check "radios of one band share it" says '"wifi_radios":\[{"band":"5GHz_low"},{"band":"5GHz_high"},{}\],"num_radios":3' \
    first_boot 'none; bands 5g 5g 6g'
check "a document can name the radios that are described" first_boot 'none; bands 2g 5g'
late='none; mv /etc/config/wireless /tmp/found; wifi() { cp /tmp/found /etc/config/wireless; bands 2g 5g; };'
check "so can it when the system finds them late" first_boot "$late"
check "without radios nothing is described, and the script is run again" says '^to be run again' \
    first_boot "$late wifi() { :; }"

setsid sim/node run >"$OUT/story" 2>&1 &
node=$!
check "the node reaches the internet" poll 60 grep 'UPSTREAM_NONE -> TARN_NET_UPSTREAM_WAN_STATE' "$OUT/story"
service() { sim/node enter busybox ash /lib/rc.common "$files/tarn_net.init" "$1"; }
check "procd is told of the daemon in words that it knows" service start_service
state() { says "$1" sim/node ubus call qnet.wired dump_state; }
reloads() { service reload_service && state "$1"; }
sim/node enter sh -c 'uci set tarn_net.inet_test_config.test_interval=9; uci commit tarn_net'
check "the service reloads in place" reloads '"test_interval": 9'

hotplug() { sim/node enter env ACTION="$1" INTERFACE="$2" busybox ash -c ". $files/tarn_net.hotplug"; }
hotplug ifup wired1
check "a port's link is told to nobody who has not asked for it" state '"wired_uplink_bridge": "br-wired0"'
sim/node enter sh -c 'uci set tarn_net.wired=wired; uci set tarn_net.wired.link_events=1; uci commit tarn_net'
hotplug ifdown wired1
hotplug ifup lan
check "what is no link of a wired port is no event" state '"wired_uplink_bridge": "br-wired0"'
hotplug ifup wired1
check "a wired port's link is told where it is asked for" state '"wired_uplink_bridge": "br-wired1"'
sim/node enter cp "$files/tarn_net.config" /etc/config/tarn_net
check "the configuration that comes with it is read" reloads '"http://openwrt.org"'
kill -INT "-$node"
wait "$node" || true
