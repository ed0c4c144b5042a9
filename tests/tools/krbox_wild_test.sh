#!/usr/bin/env bash
# krbox_wild_test.sh KRBOX EXAMPLES_DIR EXPECTED_DIR
# Runs krbox on the example library as other tools leave it: in git repositories, zipped by
# other archivers, wrapped in a folder, with what macOS and Windows add, with names in NFD.
set -uo pipefail
krbox=$(realpath "$1") examples=$2 expected=$3/robot_basics_tree.txt expected_show=$3/robot_dance_show.txt
source "$(dirname "$0")/cli_common.sh"
lib="$examples/Robot Basics"
# Titles follow the file names, so trees are compared from the second line.
tail -n +2 "$expected" >"$work/body.txt"
# The user's git configuration (signing, hooks, default branch) must not change the fixtures.
unset GIT_DIR GIT_WORK_TREE GIT_INDEX_FILE
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1
git() { command git -c init.defaultBranch=main -c user.name=t -c user.email=t@e "$@"; }
nfc() { python3 -c 'import sys, unicodedata as u; sys.stdout.write(u.normalize("NFC", sys.stdin.read()))'; }

# mkzip.py OUT SRC METHOD dirs|files [plain|macos|backslash]: zips SRC's contents, names
# relative to SRC; "macos" adds what the Finder and Explorer leave, "backslash" writes
# Windows separators with the Crouch box first, so that it is the first one refused.
cat >"$work/mkzip.py" <<'EOF'
import os, sys, zipfile
out, src, method, dirs = sys.argv[1], sys.argv[2], getattr(zipfile, sys.argv[3]), sys.argv[4] == "dirs"
style = sys.argv[5] if len(sys.argv) > 5 else "plain"
entries = []
for top, subdirs, files in os.walk(src):
    subdirs.sort()
    rel = os.path.relpath(top, src)
    rel = "" if rel == "." else rel + "/"
    if rel and dirs:
        entries.append((rel, None))
    entries += [(rel + f, open(os.path.join(top, f), "rb").read()) for f in sorted(files)]
if style == "macos":
    apple = b"\x00\x05\x16\x07\x00\x02\x00\x00Mac OS X        " + bytes(10)
    entries += [("__MACOSX/", None), ("__MACOSX/Motions/", None), ("__MACOSX/._Motions", apple),
                ("__MACOSX/Motions/._lbfinfo", apple), ("__MACOSX/Motions/Postures/Crouch/._box.bxd", apple),
                ("Motions/.DS_Store", b"\x00\x00\x00\x01Bud1" + bytes(32)),
                ("Motions/Dances/Party/Robot Dance/.DS_Store", b"\x00\x00\x00\x01Bud1" + bytes(32)),
                ("Sounds/Thumbs.db", b"\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1" + bytes(32))]
if style == "backslash":
    entries.sort(key=lambda e: e[0] != "Motions/Postures/Crouch/box.bxd")
    entries = [(name.replace("/", "\\"), data) for name, data in entries]
with zipfile.ZipFile(out, "w") as z:
    for name, data in entries:
        info = zipfile.ZipInfo(name, (2020, 1, 1, 0, 0, 0))
        info.external_attr = (0o40755 << 16 | 0x10) if data is None else 0o644 << 16
        info.compress_type = zipfile.ZIP_STORED if data is None else method
        z.writestr(info, data or b"")
EOF
mkzip() { python3 "$work/mkzip.py" "$@" || fail "python could not write $1"; }
# fresh NAME: an empty directory for one case's files, the example library to NAME/src as
# this library writes it (the example's own listings are hand-written).
fresh() {
  mkdir -p "$work/$1" && "$krbox" pack "$lib" "$work/$1/src" --format dir >/dev/null ||
    fail "$1: no copy of the example"
  case_dir="$work/$1" src="$work/$1/src"
}

# readable CASE LIBRARY [BODY]: the tree is BODY (the example's by default) before and after
# a set-tooltip, and show prints the new tooltip.
readable() {
  local case=$1 library=$2 body=${3:-$work/body.txt} pass
  for pass in before after; do
    run tree "$library"
    [[ $status -eq 0 && ! -s $work/err ]] || fail "$case: tree $pass the edit: $status $(cat "$work/err")"
    tail -n +2 "$work/out" | nfc | diff -u "$body" - >&2 || fail "$case: tree $pass the edit differs from $body"
    [[ $pass == after ]] && break
    run set-tooltip "$library" "Motions/Postures/Crouch" "Knees bent"
    [[ $status -eq 0 && ! -s $work/err ]] || fail "$case: set-tooltip: $status $(cat "$work/err")"
  done
  run show "$library" "Motions/Postures/Crouch"
  grep -qx 'Tooltip:         Knees bent' "$work/out" || fail "$case: show after the edit: $(cat "$work/out" "$work/err")"
}

# refused CASE ARCHIVE NAME_ERE WHY: tree and set-tooltip each exit 1 with the one line
# krbox: cannot open "ARCHIVE": entry "NAME" WHY, and leave the archive's bytes alone.
# ARCHIVE is relative to $work, so that a path printed other than as given shows.
refused() {
  local case=$1 archive=$2 name_ere=$3 why=$4 cmd line rest name
  cp "$work/$archive" "$work/original"
  cd "$work" || return
  for cmd in tree set-tooltip; do
    if [[ $cmd == tree ]]; then run tree "$archive"; else run set-tooltip "$archive" "Motions/Postures/Crouch" "x"; fi
    line=$(cat "$work/err") rest=${line#"krbox: cannot open \"$archive\": entry \""} name=${rest%%\"*}
    [[ $status -eq 1 && $(wc -l <"$work/err") -eq 1 && $rest != "$line" && $name =~ ^($name_ere)$ &&
      ${rest#"$name\""} == " $why" ]] || fail "$case: $cmd: exit $status, stderr: $line"
    cmp -s "$work/original" "$archive" || fail "$case: $cmd changed the archive"
  done
  cd - >/dev/null || return
}

# 1. A git work tree: .git is no part of the library, git's own files are carried along.
fresh git
g="$case_dir/src"
printf '*.ogg binary\n' >"$g/.gitattributes"
printf '*.orig\n' >"$g/.gitignore"
(cd "$g" && git init -q && git add -A && git commit -qm x) || fail "git: no repository"
readable git "$g"
(cd "$g" && git fsck --strict >"$work/fsck" 2>&1) || fail "git: fsck after the edit: $(head -3 "$work/fsck")"
[[ -z $(find "$g/.git" -name lbfinfo) ]] || fail "git: lbfinfo written into .git"
[[ $(cd "$g" && git status --porcelain) == " M Motions/Postures/Crouch/box.bxd" ]] ||
  fail "git: the edit changed more than the box: $(cd "$g" && git status --porcelain | tr '\n' ' ')"
run pack "$g" "$case_dir/packed.zip"
unzip -Z1 "$case_dir/packed.zip" >"$work/list" || fail "git: pack made no zip: $(cat "$work/err")"
! grep -q '^\.git/' "$work/list" && grep -qxF .gitattributes "$work/list" && grep -qxF .gitignore "$work/list" ||
  fail "git: pack wrote .git, or not .gitattributes and .gitignore: $(grep -E '^\.git' "$work/list" | head -3 | tr '\n' ' ')"
fresh git-parent
mkdir "$case_dir/repo" && mv "$src" "$case_dir/repo/"
(cd "$case_dir/repo" && git init -q && git add -A && git commit -qm x) || fail "git-parent: no repository"
readable git-parent "$case_dir/repo/src"
[[ $(cd "$case_dir/repo" && git status --porcelain) == " M src/Motions/Postures/Crouch/box.bxd" ]] ||
  fail "git-parent: the edit changed more than the box: $(cd "$case_dir/repo" && git status --porcelain | tr '\n' ' ')"

# 2. Methods that other archivers write and that are read all the same. An archive that
# could not be made fails in readable.
fresh lzma && mkzip "$case_dir/Robot Basics.lbf" "$src" ZIP_LZMA dirs; readable lzma "$case_dir/Robot Basics.lbf"
fresh bzip2 && mkzip "$case_dir/Robot Basics.lbf" "$src" ZIP_BZIP2 files; readable bzip2 "$case_dir/Robot Basics.lbf"
fresh zip-bzip2 && (cd "$src" && zip -qr -Z bzip2 "../Robot Basics.lbf" .); readable zip-bzip2 "$case_dir/Robot Basics.lbf"
fresh ppmd && (cd "$src" && 7zz a -tzip -m0=PPMd -bso0 -bsp0 "../Robot Basics.lbf" .); readable ppmd "$case_dir/Robot Basics.lbf"

# 3. Archives that cannot be read say why and are left as they are.
fresh deflate64 && (cd "$src" && 7zz a -tzip -m0=Deflate64 -bso0 -bsp0 "../Robot Basics.lbf" .)
refused deflate64 "deflate64/Robot Basics.lbf" '[^"]*[^/"]' \
  "is compressed with Deflate64 (method 9), which cannot be read (unrecognized file format)"
fresh zipcrypto && (cd "$src" && zip -qr -P secret "../Robot Basics.lbf" .)
refused zipcrypto "zipcrypto/Robot Basics.lbf" '[^"]*[^/"]' "is encrypted (unrecognized file format)"
fresh aes && (cd "$src" && 7zz a -tzip -mem=AES256 -psecret -bso0 -bsp0 "../Robot Basics.lbf" .)
refused aes "aes/Robot Basics.lbf" '[^"]*[^/"]' "is encrypted (unrecognized file format)"
fresh backslash && mkzip "$case_dir/Robot Basics.lbf" "$src" ZIP_DEFLATED files backslash
refused backslash "backslash/Robot Basics.lbf" 'Motions\\Postures\\Crouch\\box\.bxd' "has a backslash (corrupted file format)"
# A damaged entry (one byte of a stored box file flipped) is never taken for a missing file.
fresh damaged && mkzip "$case_dir/Robot Basics.lbf" "$src" ZIP_STORED files
python3 - "$case_dir/Robot Basics.lbf" <<'EOF'
import struct, sys, zipfile
with open(sys.argv[1], "r+b") as f:
    info = zipfile.ZipFile(f).getinfo("Motions/Postures/Crouch/box.bxd")
    f.seek(info.header_offset + 26)
    at = info.header_offset + 30 + sum(struct.unpack("<HH", f.read(4))) + 40
    f.seek(at); byte = f.read(1)[0]; f.seek(at); f.write(bytes([byte ^ 0xff]))
EOF
refused damaged "damaged/Robot Basics.lbf" 'Motions/Postures/Crouch/box\.bxd' \
  "could not be read: CRC error (corrupted file format)"

# 4. Everything under one folder, as zipping the library's directory gives.
fresh wrapped && mv "$src" "$case_dir/Robot Basics"
(cd "$case_dir" && zip -qr wrapped.lbf "Robot Basics" && 7zz a -tzip -bso0 -bsp0 wrapped7.lbf "Robot Basics" &&
  tar czf wrapped.tgz "Robot Basics")
for archive in "$case_dir/wrapped.lbf" "$case_dir/wrapped7.lbf" "$case_dir/wrapped.tgz"; do
  run show "$archive" "Motions/Dances/Party/Robot Dance"
  diff -u "$expected_show" "$work/out" >&2 || fail "wrapped: show on $archive differs from $expected_show: exit $status $(cat "$work/err")"
  readable wrapped "$archive"
  bsdtar -tf "$archive" | grep -v '^Robot Basics/' | grep . >&2 && fail "wrapped: entries left the folder in $archive"
done

# 5. What the Finder and Explorer leave is no part of the library, and goes on saving.
fresh macos && mkzip "$case_dir/Robot Basics.lbf" "$src" ZIP_DEFLATED dirs macos
for word in MACOSX DS_Store Thumbs; do
  run find "$case_dir/Robot Basics.lbf" "$word"
  [[ $status -eq 0 && ! -s $work/out ]] || fail "macos: find $word: $status $(cat "$work/out" "$work/err")"
done
run show "$case_dir/Robot Basics.lbf" "Motions/Dances/Party/Robot Dance"
diff -u "$expected_show" "$work/out" >&2 || fail "macos: show of Robot Dance differs from $expected_show: exit $status $(cat "$work/err")"
readable macos "$case_dir/Robot Basics.lbf"
unzip -Z1 "$case_dir/Robot Basics.lbf" | grep __MACOSX >&2 && fail "macos: __MACOSX entries saved back"

# 6. A name stored in NFD, as macOS writes it, while the listing names it in NFC.
fresh nfd
run mkdir "$src" "Motions/Café"
[[ $status -eq 0 ]] || fail "nfd: mkdir Café: $(cat "$work/err")"
run mv "$src" "Motions/Café" Motions 0
[[ $status -eq 0 ]] || fail "nfd: mv Café first: $(cat "$work/err")"
python3 -c 'import os, sys, unicodedata as u; os.rename(sys.argv[1] + "/Café", sys.argv[1] + "/" + u.normalize("NFD", "Café"))' \
  "$src/Motions" || fail "nfd: could not rename Café"
{ head -n 1 "$work/body.txt" && echo '    [-] Café' && tail -n +2 "$work/body.txt"; } >"$work/cafe.txt"
mkzip "$case_dir/Robot Basics.lbf" "$src" ZIP_DEFLATED dirs
for library in "$src" "$case_dir/Robot Basics.lbf"; do
  for name in Café "$(printf 'Cafe\xcc\x81')"; do
    run show "$library" "Motions/$name"
    [[ $status -eq 0 ]] || fail "nfd: show Motions/$(printf %q "$name") on $library: $status $(cat "$work/err")"
  done
  readable nfd "$library" "$work/cafe.txt"
done

((failures == 0)) || exit 1
echo "krbox wild: ok"
