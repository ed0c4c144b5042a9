#!/usr/bin/env bash
# krbox_cli_test.sh KRBOX EXAMPLES_DIR EXPECTED_DIR
set -uo pipefail
krbox=$1 examples=$2 expected=$3/robot_basics_tree.txt expected_show=$3/robot_dance_show.txt
expected_json=$3/robot_basics_tree.json expected_show_json=$3/robot_dance_show.json
source "$(dirname "$0")/cli_common.sh"

# A failure is reported as exactly one "krbox: " line on stderr.
expect_failure() {
  local want=$1
  shift
  run "$@"
  [[ $status -eq $want ]] || fail "krbox $* exited $status, expected $want"
  [[ $(wc -l <"$work/err") -eq 1 ]] && grep -q '^krbox: ' "$work/err" ||
    fail "krbox $* wrote to stderr: $(cat "$work/err")"
}

# The tool works on a copy, so that a tool writing to the library it only reads shows up.
cp -a "$examples/Robot Basics" "$examples/Robot Basics.lbf" "$work/"

run tree "$work/Robot Basics"
[[ $status -eq 0 && ! -s "$work/err" ]] || fail "tree on the directory: $status $(cat "$work/err")"
cp "$work/out" "$work/directory.txt"
diff -u "$expected" "$work/directory.txt" >&2 || fail "tree on the directory differs from $expected"
diff -r "$examples/Robot Basics" "$work/Robot Basics" >&2 || fail "tree changed the directory"

# The archive is made from the directory by examples/make-archive; the same tree proves
# that it was remade after the directory last changed.
run tree "$work/Robot Basics.lbf"
[[ $status -eq 0 && ! -s "$work/err" ]] || fail "tree on the archive: $status $(cat "$work/err")"
diff -u "$work/directory.txt" "$work/out" >&2 || fail "tree on the archive differs from the directory"
cmp -s "$examples/Robot Basics.lbf" "$work/Robot Basics.lbf" || fail "tree changed the archive"

# show: the same box through the directory and the archive; names holding "/" are found.
# --json prints what the text does, as one document.
for library in "$work/Robot Basics" "$work/Robot Basics.lbf"; do
  run show "$library" "Motions/Dances/Party/Robot Dance"
  [[ $status -eq 0 ]] || fail "show on $library: $status $(cat "$work/err")"
  diff -u "$expected_show" "$work/out" >&2 || fail "show on $library differs from $expected_show"
  run show --json "$library" "Motions/Dances/Party/Robot Dance"
  diff -u "$expected_show_json" "$work/out" >&2 || fail "show --json on $library"
  run tree "$library" --json
  diff -u "$expected_json" "$work/out" >&2 || fail "tree --json on $library differs from $expected_json"
done
run show "$work/Robot Basics" "Misc./Tests/Wait 1/2 s"
[[ $status -eq 0 ]] && grep -qx 'Tooltip:         (none)' "$work/out" && grep -qx 'Behavior:        no' "$work/out" ||
  fail "show of a box without tooltip: $status $(cat "$work/out" "$work/err")"
run show "$work/Robot Basics" "Sounds/Voices/Greetings & Goodbyes/Wave: Goodbye"
grep -qx 'Tags:            greeting, arm' "$work/out" || fail "tags of a CR LF tooltip: $(cat "$work/out")"
run show "$work/Robot Basics" "Misc./Tests/Legacy Blink"
grep -qx 'Kind:            folder' "$work/out" || fail "an old box file reads as a folder: $(cat "$work/out")"
diff -r "$examples/Robot Basics" "$work/Robot Basics" >&2 || fail "show changed the directory"
expect_failure 1 show "$work/Robot Basics" "Motions/Nothing here"

expect_failure 1 tree "$work/no such library"
expect_failure 1 show --json "$work/Robot Basics" "Motions/Nothing here"
head -c 2000 "$work/Robot Basics.lbf" >"$work/Truncated.lbf"
expect_failure 1 tree "$work/Truncated.lbf"
expect_failure 2 frobnicate "$work/Robot Basics"
run tree
[[ $status -eq 2 && $(cat "$work/err") == "usage: krbox tree PATH" ]] ||
  fail "tree without a path: $status $(cat "$work/err")"
run --help
[[ $status -eq 0 ]] && grep -q '^  tree PATH ' "$work/out" || fail "--help: $status $(cat "$work/out")"
run --version
[[ $status -eq 0 && $(cat "$work/out") =~ ^krbox\ [0-9]+\.[0-9]+\.[0-9]+$ ]] || fail "--version: $(cat "$work/out")"
run help show
cp "$work/out" "$work/help.txt"
run show --help
cmp -s "$work/help.txt" "$work/out" && grep -qx '  NODE  .*' "$work/out" && grep -qx '  krbox show .*' "$work/out" ||
  fail "help show: $(cat "$work/help.txt")"
expect_failure 2 help frobnicate

# find: every word, accents and case aside; tag: words in the tags only; --json.
run find "$work/Robot Basics.lbf" tag:POSTURE knées
[[ $status -eq 0 && $(cat "$work/out") == "Motions/Postures/Crouch" ]] || fail "find: $(cat "$work/out")"
run find --json "$work/Robot Basics" sit
[[ $(cat "$work/out") == '{"paths":["Motions/Postures/Sit Down"]}' ]] || fail "find --json: $(cat "$work/out")"

# Progress shows on a terminal only (the delay set to nothing, so that this small library has
# its line), and not with --quiet.
export KRBOX_PROGRESS_DELAY_MS=0
on_terminal() { script -qec "$(printf '%q ' "$krbox" "$@")" /dev/null >"$work/tty" 2>&1; }
# A container without /dev/pts has no terminal to give.
if why=$(script -qec true /dev/null 2>&1 </dev/null); then
  on_terminal pack "$work/Robot Basics" "$work/packed.lbf"
  grep -q 'krbox: opening 29 of 29 (100%)' "$work/tty" && grep -q 'krbox: saving 65 of 65 (100%)' "$work/tty" ||
    fail "no progress on a terminal: $(cat -v "$work/tty")"
  on_terminal tree --quiet "$work/Robot Basics"
  ! grep -q 'krbox: ' "$work/tty" || fail "progress despite --quiet: $(cat -v "$work/tty")"
else
  why=${why%%$'\n'*}
  echo "krbox cli: progress on a terminal skipped: ${why:-script cannot run}"
fi
run pack "$work/Robot Basics" "$work/packed.dir" --format dir
[[ $status -eq 0 && ! -s "$work/err" ]] || fail "progress without a terminal: $(cat "$work/err")"

((failures == 0)) || exit 1
echo "krbox cli: ok"
