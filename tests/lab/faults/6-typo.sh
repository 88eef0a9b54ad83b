# Names a variable that is not there.
pass "$no_such_variable"
