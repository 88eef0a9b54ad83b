# Still runs after all of that.
# lab-needs: tests/lab/faults/4-empty.sh
check "a file it needs is there" test -f "$TARN_SOURCE/tests/lab/faults/4-empty.sh"
refuse "no other file is" test -e "$TARN_SOURCE/dev"
