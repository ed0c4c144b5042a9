#!/usr/bin/env bash
# krbox_wild_test.sh KRBOX EXAMPLES_DIR EXPECTED_DIR
# krbox on the example library as other tools leave it: in git repositories, zipped by
# other archivers or with its folder, with what macOS and Windows add, with names in NFD.
set -uo pipefail
krbox=$(realpath "$1") examples=$2 expected_show=$3/robot_dance_show.txt
source "$(dirname "$0")/cli_common.sh"
tail -n +2 "$3/robot_basics_tree.txt" >"$work/body.txt" # titles follow the file names
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1
git() { command git -c init.defaultBranch=main -c user.name=t -c user.email=t@e "$@"; }
nfc() { python3 -c 'import sys, unicodedata as u; sys.stdout.write(u.normalize("NFC", sys.stdin.read()))'; }

# zipit.py OUT SRC [backslash|macos|damaged]: SRC's files stored, as old Windows tools, the
# Finder or a failing disk leave them.
cat >"$work/zipit.py" <<'EOF'
import os, sys, zipfile
out, src, style = sys.argv[1], sys.argv[2], (sys.argv[3:] or ["plain"])[0]
files = sorted(os.path.relpath(os.path.join(t, f), src) for t, _, fs in os.walk(src) for f in fs)
crouch = "Motions/Postures/Crouch/box.bxd"
files.sort(key=lambda f: f != crouch)  # the first entry refused
with zipfile.ZipFile(out, "w") as z:
    for f in files:
        z.writestr(f.replace("/", "\\") if style == "backslash" else f, open(os.path.join(src, f), "rb").read())
    if style == "macos":
        for name in ["__MACOSX/._Motions", "__MACOSX/Motions/._lbfinfo", "Motions/.DS_Store",
                     "Motions/Dances/Party/Robot Dance/.DS_Store", "Sounds/Thumbs.db"]:
            z.writestr(name, b"\x00\x05\x16\x07 Mac OS X")
if style == "damaged":  # a byte of the stored box file flipped: only its checksum tells
    with open(out, "r+b") as f:
        f.seek(30 + len(crouch) + 40); byte = f.read(1)[0]; f.seek(-1, 1); f.write(bytes([byte ^ 0xff]))
EOF
# fresh NAME: the example library, as this library writes it, in NAME/src.
fresh() {
  case_dir="$work/$1" src="$work/$1/src"
  mkdir "$case_dir" && "$krbox" pack "$examples/Robot Basics" "$src" --format dir >/dev/null || fail "$1: no copy"
}

# readable CASE LIBRARY [BODY]: the tree is BODY before and after a set-tooltip that shows.
readable() {
  local case=$1 library=$2 body=${3:-$work/body.txt} pass
  for pass in before after; do
    run tree "$library"
    [[ $status -eq 0 && ! -s $work/err ]] || fail "$case: tree $pass the edit: $status $(cat "$work/err")"
    tail -n +2 "$work/out" | nfc | diff -u "$body" - >&2 || fail "$case: tree $pass the edit differs"
    [[ $pass == after ]] || run set-tooltip "$library" "Motions/Postures/Crouch" "Knees bent"
    [[ $status -eq 0 && ! -s $work/err ]] || fail "$case: set-tooltip: $status $(cat "$work/err")"
  done
  run show "$library" "Motions/Postures/Crouch"
  grep -qx 'Tooltip:         Knees bent' "$work/out" || fail "$case: show after the edit: $(cat "$work/out")"
}

# refused CASE ARCHIVE WANT: tree and set-tooltip each exit 1 with the one line
# krbox: cannot open "ARCHIVE": WANT (a pattern), and leave the archive's bytes alone.
refused() {
  local case=$1 archive=$2 want=$3 cmd
  cp "$work/$archive" "$work/original" && cd "$work" || return
  for cmd in tree set-tooltip; do
    if [[ $cmd == tree ]]; then run tree "$archive"; else run "$cmd" "$archive" Motions/Postures/Crouch x; fi
    [[ $status -eq 1 && $(wc -l <"$work/err") -eq 1 && $(cat "$work/err") == "krbox: cannot open \"$archive\": "$want ]] ||
      fail "$case: $cmd: exit $status, stderr: $(cat "$work/err")"
    cmp -s "$work/original" "$archive" || fail "$case: $cmd changed the archive"
  done
  cd - >/dev/null || return
}

# A git work tree, and a library inside a bigger one: git's files are no part of the library.
fresh git
printf '*.ogg binary\n' >"$src/.gitattributes" && printf '*.orig\n' >"$src/.gitignore"
(cd "$src" && git init -q && git add -A && git commit -qm x) || fail "git: no repository"
readable git "$src"
(cd "$src" && git fsck --strict) >&2 || fail "git: fsck after the edit"
[[ -z $(find "$src/.git" -name lbfinfo) && $(cd "$src" && git status --porcelain) == " M Motions/Postures/Crouch/box.bxd" ]] ||
  fail "git: the edit wrote more than the box: $(cd "$src" && git status --porcelain | tr '\n' ' ')"
run pack "$src" "$case_dir/packed.zip"
[[ $(unzip -Z1 "$case_dir/packed.zip" | grep '^\.git' | tr '\n' ' ') == ".gitattributes .gitignore " ]] ||
  fail "git: pack carried .git, or not .gitattributes and .gitignore"
fresh git-parent && (cd "$case_dir" && git init -q && git add -A && git commit -qm x) || fail "git-parent: no repository"
readable git-parent "$src"
[[ $(cd "$case_dir" && git status --porcelain) == " M src/Motions/Postures/Crouch/box.bxd" ]] ||
  fail "git-parent: the edit wrote more than the box: $(cd "$case_dir" && git status --porcelain | tr '\n' ' ')"

# Methods other archivers write, read all the same.
for method in LZMA PPMd; do
  fresh "$method" && (cd "$src" && 7zz a -tzip -m0="$method" -bso0 -bsp0 "../Robot Basics.lbf" .)
  readable "$method" "$case_dir/Robot Basics.lbf"
done
fresh bzip2 && (cd "$src" && zip -qr -Z bzip2 "../Robot Basics.lbf" .) && readable bzip2 "$case_dir/Robot Basics.lbf"

# Archives that cannot be read say why and stay as they are.
fresh deflate64 && (cd "$src" && 7zz a -tzip -m0=Deflate64 -bso0 -bsp0 "../Robot Basics.lbf" .)
refused deflate64 "deflate64/Robot Basics.lbf" 'entry "*" is compressed with Deflate64 (method 9), which cannot be read (unrecognized file format)'
fresh zipcrypto && (cd "$src" && zip -qr -P secret "../Robot Basics.lbf" .)
refused zipcrypto "zipcrypto/Robot Basics.lbf" 'entry "*" is encrypted (unrecognized file format)'
fresh aes && (cd "$src" && 7zz a -tzip -mem=AES256 -psecret -bso0 -bsp0 "../Robot Basics.lbf" .)
refused aes "aes/Robot Basics.lbf" 'entry "*" is encrypted (unrecognized file format)'
fresh backslash && python3 "$work/zipit.py" "$case_dir/Robot Basics.lbf" "$src" backslash
refused backslash "backslash/Robot Basics.lbf" 'entry "Motions\\Postures\\Crouch\\box.bxd" has a backslash (corrupted file format)'
fresh damaged && python3 "$work/zipit.py" "$case_dir/Robot Basics.lbf" "$src" damaged
refused damaged "damaged/Robot Basics.lbf" 'entry "Motions/Postures/Crouch/box.bxd" could not be read: CRC error (corrupted file format)'

# Everything under the library's folder, as zipping the folder gives; saved back so.
fresh wrapped && mv "$src" "$case_dir/Robot Basics"
(cd "$case_dir" && zip -qr wrapped.lbf "Robot Basics" && 7zz a -tzip -bso0 -bsp0 wrapped7.lbf "Robot Basics" &&
  tar czf wrapped.tgz "Robot Basics")
for archive in "$case_dir"/wrapped*; do
  run show "$archive" "Motions/Dances/Party/Robot Dance"
  diff -u "$expected_show" "$work/out" >&2 || fail "wrapped: show on $archive: $(cat "$work/err")"
  readable wrapped "$archive"
  bsdtar -tf "$archive" | grep -v '^Robot Basics/' >&2 && fail "wrapped: entries left the folder in $archive"
done

# What the Finder and Explorer leave is no part of the library.
fresh macos && python3 "$work/zipit.py" "$case_dir/Robot Basics.lbf" "$src" macos
run find "$case_dir/Robot Basics.lbf" MACOSX
[[ $status -eq 0 && ! -s $work/out ]] || fail "macos: find: $status $(cat "$work/out" "$work/err")"
run show "$case_dir/Robot Basics.lbf" "Motions/Dances/Party/Robot Dance"
diff -u "$expected_show" "$work/out" >&2 || fail "macos: show of Robot Dance"
readable macos "$case_dir/Robot Basics.lbf"
unzip -Z1 "$case_dir/Robot Basics.lbf" | grep __MACOSX >&2 && fail "macos: __MACOSX saved back"

# A folder stored in NFD, as macOS writes it, while the listing names it in NFC.
fresh nfd && run mkdir "$src" "Motions/Café" && run mv "$src" "Motions/Café" Motions 0
[[ $status -eq 0 ]] || fail "nfd: no Café first: $(cat "$work/err")"
python3 -c 'import os, sys, unicodedata as u; os.rename(sys.argv[1] + "/Café", sys.argv[1] + "/" + u.normalize("NFD", "Café"))' \
  "$src/Motions" || fail "nfd: could not rename Café"
{ head -n 1 "$work/body.txt" && echo '    [-] Café' && tail -n +2 "$work/body.txt"; } >"$work/cafe.txt"
python3 "$work/zipit.py" "$case_dir/Robot Basics.lbf" "$src"
for library in "$src" "$case_dir/Robot Basics.lbf"; do
  for name in Café "$(printf 'Cafe\xcc\x81')"; do
    run show "$library" "Motions/$name"
    [[ $status -eq 0 ]] || fail "nfd: show Motions/$name on $library: $status $(cat "$work/err")"
  done
  readable nfd "$library" "$work/cafe.txt"
done

((failures == 0)) || exit 1
echo "krbox wild: ok"
