#!/usr/bin/env bash
# krbox_git_test.sh KRBOX EXAMPLES_DIR
# A team's library in git: two branches edit the example library, and main merges the other,
# with the listing merge driver set up and without it; krbox check and its refusals.
set -uo pipefail
krbox=$(realpath "$1") examples=$2
source "$(dirname "$0")/cli_common.sh"
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1 PATH="$(dirname "$krbox"):$PATH"
git() { command git -c init.defaultBranch=main -c user.name=t -c user.email=t@e "$@"; }
legacy='"Misc./Tests/Legacy Blink" Misc%2e/Tests/Legacy Blink/box.bxd: the box file does not read (it is version 1; this library reads version 3), so its directory reads as a folder'

# k COMMAND ARGS...: a krbox edit of the library of the current scenario.
k() { "$krbox" "$1" "$repo/lib" "${@:2}" >/dev/null 2>"$work/err" || fail "$name: krbox $*: $(cat "$work/err")"; }
# kids FOLDER: the names of FOLDER's children in the scenario's library, joined by "|".
kids() {
  "$krbox" --json tree "$repo/lib" | python3 -c '
import json, sys
node = json.load(sys.stdin)
for part in filter(None, sys.argv[1].split(">")):
    node = next(c for c in node["children"] if c["name"] == part)
print("|".join(c["name"] for c in node["children"]))' "$1"
}
# scenario NAME SETUP OURS THEIRS: the example library in a new repository, set up for the
# driver when SETUP is "yes"; the edits OURS on main and THEIRS on a branch, then main merges
# the branch. Leaves git merge's status in $merged.
scenario() {
  name=$1 repo=$work/$1
  git init -q "$repo" && "$krbox" pack "$examples/Robot Basics" "$repo/lib" --format dir >/dev/null
  [[ $2 == yes ]] && { "$krbox" git-setup "$repo/lib" >/dev/null || fail "$name: git-setup"; }
  (cd "$repo" && git add -A && git commit -qm base && git branch theirs) || fail "$name: no base"
  eval "$3" && (cd "$repo" && git add -A && git commit -qm ours && git checkout -q theirs)
  eval "$4" && (cd "$repo" && git add -A && git commit -qm theirs && git checkout -q main)
  (cd "$repo" && git merge -q theirs -m merge) >"$work/merge.out" 2>&1
  merged=$?
}
# expect FOLDER NAMES...: the merge went through, the library reads as it is stored (but for
# the example's old box), and each FOLDER holds the children NAMES.
expect() {
  [[ $merged -eq 0 && -z $(cd "$repo" && git status --porcelain) ]] ||
    fail "$name: the merge did not go through: $(cat "$work/merge.out")"
  run check "$repo/lib"
  [[ $status -eq 1 && $(cat "$work/out") == "$legacy" ]] || fail "$name: check: $(cat "$work/out")"
  while (($# > 1)); do
    [[ $(kids "$1") == "$2" ]] || fail "$name: $1 holds $(kids "$1"), not $2"
    shift 2
  done
}

scenario adds yes 'k mkdir Motions/Kicks' 'k mkdir Motions/Jumps'
expect Motions "Walk / Turn|Postures|Dances|Kicks|Jumps"

scenario reorder yes 'k mv Motions/Dances Motions 0' 'k mkdir Motions/Jumps; k mkdir Motions/Kicks'
expect Motions "Dances|Walk / Turn|Postures|Jumps|Kicks"

scenario rename yes 'k rm Sounds/Music; k mkdir "Misc./Tests/More"' \
  'k rename Sounds/Voices Speech; k mkdir Sounds/Effects; k mv "Misc./Tests/Blink Eyes" Sensing 0'
expect Sounds "Speech|Effects" Sensing "Blink Eyes|Touch|Look: Up?" \
  "Misc.>Tests" "Wait 1/2 s|Legacy Blink|More"

# Without the driver git leaves conflict markers, which check names and edits refuse.
scenario unset no 'k mkdir Motions/Kicks' 'k mkdir Motions/Jumps'
[[ $merged -ne 0 ]] || fail "unset: merged without the driver"
run check "$repo/lib"
[[ $status -eq 1 ]] && grep -qxF '"Motions" Motions/lbfinfo: the listing is not read: it holds conflict markers left by a merge; the folder reads collapsed, its children in name order' "$work/out" ||
  fail "unset: check: $status $(cat "$work/out")"
before=$(cd "$repo" && git status --porcelain)
run mkdir "$repo/lib" Sounds/More
[[ $status -eq 1 && $(cat "$work/err") == "krbox: \"Motions/lbfinfo\" holds conflict markers left by a merge; resolve it first (see krbox check \"$repo/lib\")" ]] ||
  fail "unset: the edit was not refused: $status $(cat "$work/err")"
[[ $(cd "$repo" && git status --porcelain) == "$before" ]] || fail "unset: the refused edit wrote"

# git-setup says what it did, once, and only for a library directory in a repository.
run git-setup "$work/adds/lib"
[[ $status -eq 0 && $(grep -c 'already' "$work/out") -eq 3 ]] || fail "setup again: $(cat "$work/out")"
[[ $(grep -c krbox-listing "$work/adds/lib/.gitattributes") -eq 1 ]] || fail "setup: .gitattributes"
[[ $(git -C "$work/adds" config merge.krbox-listing.driver) == "krbox merge-listing %O %A %B" ]] ||
  fail "setup: driver $(git -C "$work/adds" config merge.krbox-listing.driver)"
"$krbox" pack "$examples/Robot Basics" "$work/loose" --format dir >/dev/null
for library in "$work/loose" "$examples/Robot Basics.lbf"; do
  run git-setup "$library"
  [[ $status -eq 1 && -s $work/err && ! -e $work/loose/.gitattributes ]] || fail "setup $library: $status"
done

# merge-listing refuses what is no listing, and leaves OURS as it was.
printf 'not a listing' >"$work/ours"
run merge-listing "$work/ours" "$work/ours" "$work/ours"
[[ $status -eq 1 && $(cat "$work/ours") == "not a listing" ]] || fail "merge-listing: $status $(cat "$work/err")"

# check --json: the example's one problem.
run --json check "$examples/Robot Basics.lbf"
[[ $status -eq 1 ]] && python3 -c 'import json, sys; p = json.load(open(sys.argv[1])); assert [sorted(x) for x in p] == [["file", "path", "problem"]] and p[0]["path"] == "Misc./Tests/Legacy Blink"' "$work/out" ||
  fail "check --json: $(cat "$work/out")"
exit $((failures > 0))
