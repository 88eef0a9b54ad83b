# sim/lab/lib.sh: what check files are written with; guest/stage loads it before the file.
# shellcheck shell=sh
# Results. A check's name says what must hold. Seconds are the guest's, which cost next to nothing while it idles.

pass() {
    echo "ok      $1"
    echo ok >>/lab/tally
}

# fail NAME [TEXT]: TEXT, of any number of lines, tells why.
fail() {
    echo "FAILED  $1"
    [ -z "${2:-}" ] || printf '%s\n' "$2" | sed 's/^/        /'
    echo failed >>/lab/tally
}

skip() {
    echo "skipped $1: $2"
    echo skipped >>/lab/tally
}

# check NAME COMMAND...: passes when COMMAND succeeds; shows what it printed when it does not.
check() {
    check_name=$1
    shift
    if check_said=$("$@" 2>&1); then
        pass "$check_name"
    else
        fail "$check_name" "$*: status $?
$check_said"
    fi
}

# refuse NAME COMMAND...: passes when COMMAND fails.
refuse() {
    check_name=$1
    shift
    if check_said=$("$@" 2>&1); then
        fail "$check_name" "$*: succeeded
$check_said"
    else
        pass "$check_name"
    fi
}

# now_s: leaves the guest's uptime in $now.
now_s() {
    read -r now _ </proc/uptime
    now=${now%.*}
}

# poll LIMIT_S COMMAND...: until COMMAND succeeds; its last output and status when the limit passes. Starting a
# program costs more of the host's time than waiting does, so a long wait looks less often.
poll() {
    now_s
    poll_end=$((now + $1)) poll_quick_end=$((now + 3))
    shift
    until poll_said=$("$@" 2>&1); do
        now_s
        [ "$now" -lt "$poll_end" ] || { printf '%s\n' "$poll_said"; return 1; }
        if [ "$now" -lt "$poll_quick_end" ]; then sleep 0.2; else sleep 1; fi
    done
    printf '%s\n' "$poll_said"
}

# says PATTERN COMMAND...: COMMAND prints a line that matches; all it printed when none does.
says() {
    says_pattern=$1
    shift
    says_text=$("$@" 2>&1)
    printf '%s\n' "$says_text"
    printf '%s\n' "$says_text" | grep -q -e "$says_pattern"
}

# Nodes: network namespaces by name.

node() {
    for node_name in "$@"; do
        ip netns add "$node_name" && ip -n "$node_name" link set lo up
    done
}

# on NODE COMMAND...: inside a node, with its own view of /sys (and no debugfs there).
on() { ip netns exec "$@"; }

# wire NODE INTERFACE NODE INTERFACE: a cable between two nodes.
wire() {
    ip link add "$2" netns "$1" type veth peer name "$4" netns "$3" &&
        ip -n "$1" link set "$2" up && ip -n "$3" link set "$4" up
}

# mac NODE INTERFACE
mac() { on "$1" cat "/sys/class/net/$2/address"; }

# mesh NODE...: a chain of new nodes, each with bat0 up and a link to the next: NODE's end is called to-NEXT.
# Bridge loop avoidance is off: it keeps broadcasts back for half a minute.
mesh() {
    mesh_last=
    for mesh_node in "$@"; do
        node "$mesh_node"
        ip -n "$mesh_node" link add bat0 type batadv
        on "$mesh_node" batctl bridge_loop_avoidance 0
        [ -z "$mesh_last" ] || mesh_join "$mesh_last" "$mesh_node"
        ip -n "$mesh_node" link set bat0 up
        mesh_last=$mesh_node
    done
}

# mesh_join NODE NODE: one more link of the mesh; room for batman-adv's header avoids fragments.
mesh_join() {
    wire "$1" "to-$2" "$2" "to-$1"
    ip -n "$1" link set "to-$2" mtu 1560 master bat0
    ip -n "$2" link set "to-$1" mtu 1560 master bat0
}

# Radios and access points.

# radios COUNTRY COUNT: that many simulated radios, wlan0 and on, here, under the rules of that country.
radios() {
    modprobe mac80211_hwsim "radios=$2" || return 1
    for radio in $(nsenter --net=/lab/netns iw dev | grep '^phy#'); do
        nsenter --net=/lab/netns iw "$radio" set netns $$ || return 1
    done
    iw reg set "$1"
    poll 10 says "^country $1" iw reg get
}

# phy INTERFACE: its radio's name, which differs from file to file.
phy() { cat "/sys/class/net/$1/phy80211/name"; }

# access_point INTERFACE CHANNEL [LINE...]: hostapd on that 5 GHz channel with more lines of configuration;
# its log is in $OUT, its control socket in /run/hostapd.
access_point() {
    ap_name=$1 ap_channel=$2
    shift 2
    cat >"/run/$ap_name.conf" <<-CONF
	interface=$ap_name
	driver=nl80211
	ctrl_interface=/run/hostapd
	ssid=lab
	country_code=$(iw reg get | sed -n 's/^country \(..\).*/\1/p' | head -n 1)
	ieee80211d=1
	ieee80211h=1
	hw_mode=a
	channel=$ap_channel
	ieee80211n=1
	wmm_enabled=1
	CONF
    [ $# -eq 0 ] || printf '%s\n' "$@" >>"/run/$ap_name.conf"
    hostapd -t -B -P "/run/$ap_name.pid" -f "$OUT/hostapd-$ap_name.log" "/run/$ap_name.conf"
}

# ap_said INTERFACE TEXT: the access point's log holds it.
ap_said() { grep -F -e "$2" "$OUT/hostapd-$1.log"; }

# radar INTERFACE: a radar pulse on the channel that it uses.
radar() { echo 1 >"/sys/kernel/debug/ieee80211/$(phy "$1")/hwsim/dfs_simulate_radar"; }

# scenario FILE: plays it on the simulated node; one result. Its story is $OUT/story, shown as it happens when
# LAB_NARRATE is set, else when the scenario fails.
scenario() {
    scenario_title=$(sed -n 's/^title //p' "$1")
    if [ -n "${LAB_NARRATE:-}" ]; then
        { sim/node play "$1"; echo $? >/run/played; } 2>&1 | tee "$OUT/story"
    else
        sim/node play "$1" >"$OUT/story" 2>&1
        echo $? >/run/played
    fi
    case $(cat /run/played)${LAB_NARRATE:-} in
    0*) pass "$scenario_title" ;;
    *[!0-9]*) fail "$scenario_title" ;;
    *) fail "$scenario_title" "$(tail -n 150 "$OUT/story")" ;;
    esac
}
