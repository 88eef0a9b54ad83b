# Never ends by itself; a process it leaves behind must not outlive it.
# lab-limit: 30
pass "started"
sleep 5000 &
sleep 5000
