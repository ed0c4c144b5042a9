# Shared by the krbox test scripts: a scratch directory removed at exit, failure counting
# and running the tool. Expects $krbox to be set.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# Runs krbox with the given arguments; leaves the exit status in $status and the output in
# $work/out and $work/err.
run() {
  "$krbox" "$@" >"$work/out" 2>"$work/err"
  status=$?
}
