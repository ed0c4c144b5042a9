#!/usr/bin/env bash
# krbox_faults_test.sh KRBOX EXAMPLES_DIR
# Each edit command, with one write failure injected through the project model's file layer
# (ZUPROJECT_FAULT, see platform/zuproject/src/file_io.h) at the open, the first write, a
# later write, the flush, the close and the rename: exit 0 and the edit complete, or exit 1
# with one line and the library byte-identical, nothing left beside it. Then a library its
# owner made read-only is refused as an unprivileged user.
set -uo pipefail
krbox=$1 examples=$2
source "$(dirname "$0")/cli_common.sh"

# Every path below a directory with its type, mode and bytes; a zip by its entries, since
# the times of entries it rewrote differ from one run to the next.
snapshot() {
  (cd "$1" && find . -printf '%p %y %m\n' -type f ! -name '*.zip' -exec sha256sum {} + | sort
   for zip in *.zip; do
     [[ -f $zip ]] || continue
     echo "$zip:" && rm -rf "$work/zip" && mkdir "$work/zip" && bsdtar -xf "$zip" -C "$work/zip" &&
       snapshot "$work/zip"
   done)
}

src="$work/src" big=$(head -c 120000 /dev/zero | tr '\0' 'x')
mkdir -p "$src"
printf '<VantorelBox bxd_version="3"><Box name="Chirp"/></VantorelBox>\n' >"$src/chirp.bxd"
printf 'a resource\n' >"$src/res.txt"
edits=(
  'mkdir LIB Motions/New'
  'add LIB Motions SRC/chirp.bxd SRC/res.txt'
  'rename LIB Motions/Postures Poses'
  'mv LIB Sounds/Music Motions 0'
  'rm LIB Sensing'
  'set-tooltip LIB Motions/Postures/Crouch BIG'
  'set-tooltip LIB Motions/Postures/Stand_Up Up'
  'set-tooltip ZIP Motions/Postures/Crouch Low'
  'pack LIB OUT --format dir'
  'pack LIB OUT.zip'
)
faults=(open:1 write:1 write:3 flush:1 close:1 rename:1 write:2:eio)

# Runs one edit on fresh copies in $work/t; fault may be empty.
edit() {
  local fault=$1 line=$2 args=()
  rm -rf "$work/t" && mkdir "$work/t"
  cp -a "$examples/Robot Basics" "$work/t/lib"
  cp -a "$examples/Robot Basics.lbf" "$work/t/lib.zip"
  for word in $line; do
    case $word in
      LIB) args+=("$work/t/lib") ;; ZIP) args+=("$work/t/lib.zip") ;; OUT*) args+=("$work/t/out${word#OUT}") ;;
      SRC/*) args+=("$src/${word#SRC/}") ;; BIG) args+=("$big") ;; *) args+=("${word//_/ }") ;;
    esac
  done
  before=$(snapshot "$work/t")
  ZUPROJECT_FAULT=$fault run "${args[@]}"
  after=$(snapshot "$work/t")
}

for line in "${edits[@]}"; do
  edit "" "$line"
  [[ $status -eq 0 && $after != "$before" ]] || fail "$line without a fault: $status $(cat "$work/err")"
  complete=$after
  for fault in "${faults[@]}"; do
    edit "$fault" "$line"
    if [[ $status -eq 0 ]]; then
      [[ $after == "$complete" ]] || fail "$line, $fault: exit 0 but the edit is not complete"
    elif [[ $status -eq 1 && $(wc -l <"$work/err") -eq 1 ]]; then
      [[ $after == "$before" ]] || fail "$line, $fault: exit 1 but the files changed:
$(diff <(echo "$before") <(echo "$after"))"
    else
      fail "$line, $fault: exit $status, $(cat "$work/err")"
    fi
  done
done

# A library its owner made read-only, the folder above it writable. Root writes anything, so
# the edit runs as nobody when this runs as root.
as=()
if ((EUID == 0)); then
  if command -v setpriv >/dev/null && setpriv --reuid=nobody --regid=nogroup --clear-groups \
       test -x "$krbox"; then
    as=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
  else
    echo "krbox faults: SKIPPED the read-only library: root, and nobody cannot run $krbox"
  fi
fi
if ((EUID != 0)) || ((${#as[@]})); then
  ro="$work/ro"
  mkdir -p "$ro" && cp -a "$examples/Robot Basics" "$ro/lib"
  ((${#as[@]})) && chown -R nobody:nogroup "$ro"
  chmod 755 "$work" && chmod -R a-w "$ro/lib"
  before=$(snapshot "$ro")
  for args in "set-tooltip|Motions/Postures/Crouch|Low" "mkdir|Motions/New" "rm|Sensing"; do
    IFS='|' read -r -a words <<<"$args"
    "${as[@]}" "$krbox" "${words[0]}" "$ro/lib" "${words[@]:1}" >"$work/out" 2>"$work/err"
    status=$?
    [[ $status -eq 1 ]] && grep -q 'not writable' "$work/err" ||
      fail "read-only ${words[0]}: $status $(cat "$work/err")"
  done
  [[ $(snapshot "$ro") == "$before" ]] || fail "the read-only library changed, or something is beside it"
  chmod -R u+w "$ro"
fi

((failures == 0)) || exit 1
echo "krbox faults: ok"
