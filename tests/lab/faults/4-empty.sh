# Checks nothing.
