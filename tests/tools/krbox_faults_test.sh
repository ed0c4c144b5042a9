#!/usr/bin/env bash
# krbox_faults_test.sh KRBOX EXAMPLES_DIR: each edit with a write failure injected at each
# step (ZUPROJECT_FAULT, platform/zuproject/src/file_io.h) ends complete with exit 0, or
# byte-identical with exit 1 and one line; a library made read-only is refused.
set -uo pipefail
krbox=$1 examples=$2
source "$(dirname "$0")/cli_common.sh"

# Paths, types, modes and bytes below $1; a zip by its entries, whose times vary per run.
snapshot() {
  (cd "$1" && find . -printf '%p %y %m\n' -type f ! -name '*.zip' -exec sha256sum {} + | sort
   for zip in *.zip; do
     [[ -f $zip ]] && rm -rf "$work/z" && mkdir "$work/z" && bsdtar -xf "$zip" -C "$work/z" &&
       echo "$zip:" && snapshot "$work/z"
   done)
}
printf '<VantorelBox bxd_version="3"><Box name="Chirp"/></VantorelBox>\n' >"$work/chirp.bxd"
edits=('mkdir LIB Motions/New' 'add LIB Motions CHIRP' 'rename LIB Motions/Postures Poses'
  'mv LIB Sounds/Music Motions 0' 'rm LIB Sensing' 'set-tooltip LIB Motions/Postures/Crouch BIG'
  'set-tooltip LIB Motions/Postures/Stand_Up Up' 'set-tooltip ZIP Motions/Postures/Crouch Low'
  'pack LIB OUT --format dir' 'pack LIB OUT.zip')

# Runs one edit, with the fault $1 (or none), on fresh copies in $work/t.
edit() {
  local args=()
  rm -rf "$work/t" && mkdir "$work/t" && cp -a "$examples/Robot Basics" "$work/t/lib"
  cp "$examples/Robot Basics.lbf" "$work/t/lib.zip"
  chmod 600 "$work/t/lib/Motions/Postures/Crouch/box.bxd"  # a save keeps the mode
  for word in $2; do
    case $word in
      LIB) args+=("$work/t/lib") ;; ZIP) args+=("$work/t/lib.zip") ;; CHIRP) args+=("$work/chirp.bxd") ;;
      OUT*) args+=("$work/t/out${word#OUT}") ;; BIG) args+=("$(head -c 120000 /dev/zero | tr '\0' x)") ;;
      *) args+=("${word//_/ }") ;;
    esac
  done
  before=$(snapshot "$work/t")
  ZUPROJECT_FAULT=$1 run "${args[@]}"
  after=$(snapshot "$work/t")
}

for line in "${edits[@]}"; do
  edit "" "$line"
  [[ $status -eq 0 && $after != "$before" ]] || fail "$line: $status $(cat "$work/err")"
  complete=$after
  grep -q 'Crouch/box.bxd f 600' <<<"$after" || fail "$line: a replaced file lost its mode"
  for fault in open:1 write:1 write:3 flush:1 close:1 rename:1 write:2:eio; do
    edit "$fault" "$line"
    if [[ $status -eq 0 ]]; then
      [[ $after == "$complete" ]] || fail "$line, $fault: exit 0, the edit incomplete"
    elif [[ $status -ne 1 || $(wc -l <"$work/err") -ne 1 || $after != "$before" ]]; then
      fail "$line, $fault: exit $status, $(cat "$work/err") $(diff <(echo "$before") <(echo "$after"))"
    fi
  done
done

# Root writes anything: as root the read-only case runs as nobody, or is skipped.
as=()
((EUID == 0)) && as=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
if ((EUID == 0)) && ! "${as[@]}" test -x "$krbox" 2>/dev/null; then
  echo "krbox faults: SKIPPED the read-only library: running as root, and nobody cannot run krbox"
else
  mkdir "$work/ro" && cp -a "$examples/Robot Basics" "$work/ro/lib" && chmod 755 "$work"
  ((EUID == 0)) && chown -R nobody:nogroup "$work/ro"
  chmod -R a-w "$work/ro/lib"
  before=$(snapshot "$work/ro")
  for args in "set-tooltip|Motions/Postures/Crouch|Low" "mkdir|Motions/New" "rm|Sensing"; do
    IFS='|' read -r -a words <<<"$args"
    "${as[@]}" "$krbox" "${words[0]}" "$work/ro/lib" "${words[@]:1}" >"$work/out" 2>"$work/err"
    [[ $? -eq 1 ]] && grep -q 'not writable' "$work/err" || fail "read-only ${words[0]}: $(cat "$work/err")"
  done
  [[ $(snapshot "$work/ro") == "$before" ]] || fail "the read-only library changed, or has company"
fi
chmod -R u+w "$work"
((failures == 0)) || exit 1
echo "krbox faults: ok"
