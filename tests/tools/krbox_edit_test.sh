#!/usr/bin/env bash
# krbox_edit_test.sh KRBOX EXAMPLES_DIR EXPECTED_DIR
# Runs the commands that change or write libraries on copies of the example library.
set -uo pipefail
krbox=$1 examples=$2 expected=$3/robot_basics_edited_tree.txt
source "$(dirname "$0")/cli_common.sh"

# Success is the result's one line on stdout and nothing on stderr.
expect_output() {
  local want=$1
  shift
  run "$@"
  [[ $status -eq 0 && ! -s "$work/err" && $(cat "$work/out") == "$want" ]] ||
    fail "krbox $*: $status, out: $(cat "$work/out"), err: $(cat "$work/err")"
}

# A refused command prints one line (a usage line for status 2), exits with the status wanted,
# writes nothing to stdout and leaves every library and file under $work/libs as it was.
expect_refused() {
  local want=$1
  shift
  rm -rf "$work/before"
  cp -a "$work/libs" "$work/before"
  run "$@"
  [[ $status -eq $want && ! -s "$work/out" ]] || fail "krbox $* exited $status, expected $want"
  [[ $(wc -l <"$work/err") -eq 1 ]] && grep -Eq '^(krbox: |usage: krbox )' "$work/err" ||
    fail "krbox $* wrote to stderr: $(cat "$work/err")"
  diff -r "$work/before" "$work/libs" >&2 || fail "krbox $* changed the files"
}

is_zip() {
  [[ -f $1 && $(head -c 4 "$1" | od -An -tx1 | tr -d ' ') == 504b0304 ]]
}

mkdir -p "$work/libs" "$work/src/Nod%3f Yes" "$work/src/Old"
cp -a "$examples/Robot Basics" "$examples/Robot Basics.lbf" "$work/libs/"
dir="$work/libs/Robot Basics" zip="$work/libs/Robot Basics.lbf" src="$work/src"
# A box file named box.bxd is named after its (escaped) directory; resources of any kind.
cp "$examples/Robot Basics/Misc%2e/Tests/Wait 1%2f2 s/box.bxd" "$src/Nod%3f Yes/box.bxd"
printf 'nod twice\n' >"$src/nod.txt"
cp "$examples/Robot Basics/Motions/Dances/Party/Robot Dance/party.ogg" "$src/nod.ogg"
printf '<VantorelBox bxd_version="3"><Box name="Chirp" tooltip="A short chirp."/></VantorelBox>\n' \
  >"$src/anything.bxd"
printf '<VantorelBox bxd_version="3"><Box name="Broken"></VantorelBox>\n' >"$src/broken.bxd"
cp "$examples/Robot Basics/Misc%2e/Tests/Legacy Blink/box.bxd" "$src/Old/box.bxd"
printf 'not a box\n' >"$src/box.bxd"

# --- Edits of the directory form; each prints the node it made, names numbered as needed.
expect_output '{"path":"Motions/Gestures"}' mkdir --json "$dir" "Motions/Gestures"
expect_output "Motions/Gestures (2)" mkdir "$dir" "Motions/Gestures"
expect_output "Motions/Gestures/Nod? Yes" add "$dir" "Motions/Gestures" "$src/Nod%3f Yes/box.bxd" \
  "$src/nod.txt" "$src/nod.ogg"
box="$dir/Motions/Gestures/Nod%3f Yes"
[[ -f $box/box.bxd ]] && cmp -s "$src/nod.txt" "$box/nod.txt" && cmp -s "$src/nod.ogg" "$box/nod.ogg" ||
  fail "add did not write the box and its resources: $(ls -A "$box")"
expect_output "Motions/Arms / Legs" rename "$dir" "Motions/Gestures (2)" "Arms / Legs"
[[ -d "$dir/Motions/Arms %2f Legs" && ! -e "$dir/Motions/Gestures (2)" ]] ||
  fail "rename did not move the directory: $(ls -A "$dir/Motions")"
# Not the last child: a listing left unwritten would show in the order.
expect_output "Sensing/Touch/Hands (2)" rename "$dir" "Sensing/Touch/Head: Front / Rear" "Hands"
expect_output "Motions/Arms / Legs/Nod? Yes" mv "$dir" "Motions/Gestures/Nod? Yes" "Motions/Arms / Legs"
[[ ! -e $box ]] && cmp -s "$src/nod.ogg" "$dir/Motions/Arms %2f Legs/Nod%3f Yes/nod.ogg" ||
  fail "mv left the old directory or lost a resource"
expect_output "Arms / Legs" mv "$dir" "Motions/Arms / Legs" "" 0
# INDEX counts in the folder's final list, the node itself no longer counted.
expect_output "Motions/Postures/Crouch" mv "$dir" "Motions/Postures/Crouch" "Motions/Postures" 0
expect_output "Motions/Postures/Crouch" set-tooltip "$dir" -- "Motions/Postures/Crouch" --json
expect_output "Motions/Postures/Crouch" set-tooltip "$dir" "Motions/Postures/Crouch" \
  $'Low.\ntags:\nlow; squat'
expect_output "Motions/Gestures" rm "$dir" "Motions/Gestures"
expect_output "Sounds/Music" rm "$dir" "Sounds/Music"
[[ ! -e "$dir/Motions/Gestures" && ! -e "$dir/Sounds/Music" ]] || fail "rm left a directory"
# Read back from disk: the listings, names and order all went through.
run tree "$dir"
diff -u "$expected" "$work/out" >&2 || fail "the edited tree differs from $expected"
run show "$dir" "Motions/Postures/Crouch"
grep -qx 'Tags:            low, squat' "$work/out" || fail "set-tooltip: $(cat "$work/out")"
run show "$dir" "Arms / Legs/Nod? Yes"
grep -q 'nod.ogg (4096 bytes)' "$work/out" || fail "show after mv: $(cat "$work/out")"

# --- The archive stays an archive and reopens with the change.
expect_output "Chirp" add "$zip" "" "$src/anything.bxd" "$src/nod.txt"
expect_output "Misc./Checks" rename "$zip" "Misc./Tests" "Checks"
is_zip "$zip" || fail "the edited archive is no zip"
run show "$zip" "Chirp"
grep -qx 'Tooltip:         A short chirp.' "$work/out" && grep -q 'nod.txt (10 bytes)' "$work/out" ||
  fail "show of the box added to the archive: $(cat "$work/out" "$work/err")"
run tree "$zip"
grep -qx '    \[+\] Checks' "$work/out" && ! grep -q 'Tests' "$work/out" ||
  fail "tree of the edited archive: $(cat "$work/out")"

# --- Refused edits say why in one line and change nothing.
expect_refused 1 rename "$dir" "Motions/Nothing here" "Something"
expect_refused 1 rename "$dir" "" "Top"
expect_refused 1 rename "$dir" "Motions" ""
expect_refused 1 rm "$dir" ""
expect_refused 1 mkdir "$dir" "Motions/Postures/Stand Up/Inside"
expect_refused 1 add "$dir" "Motions" "$src/missing.bxd"
expect_refused 1 add "$dir" "Motions" "$src/broken.bxd"
grep -q 'broken.bxd' "$work/err" || fail "a parse error does not name the file: $(cat "$work/err")"
expect_refused 1 add "$dir" "Motions" "$src/Old/box.bxd"
expect_refused 1 add "$dir" "Motions" "$src/box.bxd"
expect_refused 1 add "$dir" "Motions" "$src/anything.bxd" "$src/nod.txt" "$src/missing.txt"
expect_refused 1 add "$dir" "Motions" "$src/anything.bxd" "$src/Nod%3f Yes/box.bxd"
expect_refused 1 add "$dir" "Motions" "$src/anything.bxd" "$src/nod.txt" "$src/nod.txt"
grep -q 'two resources are named "nod.txt"' "$work/err" || fail "add, one resource twice: $(cat "$work/err")"
# The editor's refusals (its own tests go through each) end the command the same way.
expect_refused 1 mkdir "$dir" " (2)"
expect_refused 1 mv "$dir" "Motions" "Motions/Postures"
grep -q 'cannot move into itself or below itself' "$work/err" || fail "mv into itself: $(cat "$work/err")"
expect_refused 1 mv "$dir" "Motions/Postures/Crouch" "Motions/Postures" 3
expect_refused 1 mv "$dir" "Motions/Postures/Crouch" "Motions/Dances" -1
expect_refused 1 set-tooltip "$dir" "Motions" "A folder has none"
expect_refused 2 mv "$dir" "Motions"

# --- new: an empty library in either form, usable at once.
expect_output "$work/libs/Fresh" new "$work/libs/Fresh"
expect_output "$work/libs/Fresh.lbf" new --format zip "$work/libs/Fresh.lbf"
is_zip "$work/libs/Fresh.lbf" && [[ -d "$work/libs/Fresh" ]] || fail "new made the wrong forms"
for library in "$work/libs/Fresh" "$work/libs/Fresh.lbf"; do
  run tree "$library"
  [[ $status -eq 0 && $(cat "$work/out") == Fresh ]] || fail "tree of a new library: $(cat "$work/out")"
done
expect_output "Folder" mkdir "$work/libs/Fresh.lbf" "Folder"
expect_refused 1 new "$work/libs/Fresh"
expect_refused 1 new "$work/libs/Robot Basics.lbf" --format zip
expect_refused 1 new "$work/libs/no such directory/Fresh"
expect_refused 2 new "$work/libs/Other" --format tar

# --- pack: a copy in the other form with the same tree; the source is not touched.
run tree "$dir"
tail -n +2 "$work/out" >"$work/dir-tree.txt"
rm -rf "$work/before"
cp -a "$work/libs" "$work/before"
expect_output "$work/packed.lbf" pack "$dir" "$work/packed.lbf"
expect_output "$work/unpacked" pack "$work/packed.lbf" "$work/unpacked" --format dir
is_zip "$work/packed.lbf" && [[ -d "$work/unpacked" ]] || fail "pack made the wrong forms"
run tree "$work/unpacked"
[[ $(head -n 1 "$work/out") == unpacked ]] || fail "a packed copy is titled $(head -n 1 "$work/out")"
tail -n +2 "$work/out" | diff -u "$work/dir-tree.txt" - >&2 || fail "the packed copies differ"
diff -r "$work/before" "$work/libs" >&2 || fail "pack changed its source"
expect_refused 1 pack "$dir" "$zip"
expect_refused 1 pack "$zip" "$work/libs/Fresh" --format dir

# --- export: each behavior as a behavior project at its path below DEST.
mkdir "$work/exported" "$work/empty-export" "$work/exported-json"
run export "$zip" "$work/exported"
[[ $status -eq 0 && ! -s "$work/err" ]] || fail "export: $status $(cat "$work/err")"
printf '%s\n' "Motions/Postures/Stand Up" "Motions/Postures/Sit Down" \
  "Motions/Dances/Party/Robot Dance" "Sounds/Voices/Greetings & Goodbyes/Wave%3a Goodbye" |
  diff -u - "$work/out" >&2 || fail "export listed other behaviors"
while IFS= read -r path; do
  behavior="$work/exported/$path/behavior.bxd"
  grep -q '<VantorelProject [^>]*bxd_version="2"' "$behavior" && [[ ! -e "$work/exported/$path/box.bxd" ]] ||
    fail "export of $path: $(ls -A "$work/exported/$path")"
done <"$work/out"
expect_output '{"paths":["Motions/Postures/Stand Up","Motions/Postures/Sit Down","Motions/Dances/Party/Robot Dance","Sounds/Voices/Greetings & Goodbyes/Wave%3a Goodbye"]}' \
  export --json "$zip" "$work/exported-json"
cmp -s "$examples/Robot Basics/Motions/Dances/Party/Robot Dance/party.ogg" \
  "$work/exported/Motions/Dances/Party/Robot Dance/party.ogg" || fail "export lost a resource"
# A file in the way of one behavior: the others are still exported, that one is reported.
mkdir -p "$work/blocked/Motions/Postures"
touch "$work/blocked/Motions/Postures/Sit Down"
run export "$zip" "$work/blocked"
[[ $status -eq 1 && $(cat "$work/err") == 'krbox: could not export "Motions/Postures/Sit Down"' &&
  $(wc -l <"$work/out") -eq 3 && -f "$work/blocked/Motions/Postures/Stand Up/behavior.bxd" ]] ||
  fail "export past a blocked behavior: $status $(cat "$work/out" "$work/err")"
expect_output "" export "$work/libs/Fresh" "$work/empty-export"
[[ -z $(ls -A "$work/empty-export") ]] || fail "a library without behaviors exported $(ls -A "$work/empty-export")"
# A copy or an export into the library itself would show as part of it.
expect_refused 1 pack "$dir" "$dir/inner" --format dir
expect_refused 1 pack "$dir" "$dir/Motions/inner.zip"
expect_refused 1 export "$dir" "$dir/Motions"
expect_refused 1 export "$zip" "$work/no such directory"
expect_refused 1 export "$zip" "$src/nod.txt"

((failures == 0)) || exit 1
echo "krbox edit: ok"
