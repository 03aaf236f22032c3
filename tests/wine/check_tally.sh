# Sourced by the Wine test scripts that count their checks.
#
#   fail MESSAGE  prints "FAIL MESSAGE" and counts a failed check
#   pass          counts a check that passed
#   tally NAME    prints "NAME: P checks passed, F failed"; its status is 0
#                 only when no check failed, so a script ends with it

failures=0
passes=0

fail() {
  echo "FAIL $*"
  failures=$((failures + 1))
}

pass() {
  passes=$((passes + 1))
}

tally() {
  echo "$1: $passes checks passed, $failures failed"
  [ "$failures" -eq 0 ]
}
