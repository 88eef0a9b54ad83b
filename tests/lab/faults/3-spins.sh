# Burns the host's time, of which it may have little.
# lab-wall-limit: 3
while :; do :; done
