# Finds nothing of the file before it, and loses a result in neither a subshell nor an early end.
check "processes of the file before are gone" test -z "$(pgrep sleep)"
(skip "in a subshell" "to be counted")
echo kept >"$OUT/kept"
printf 'a line without an end'
exit 0
