#!/usr/bin/env bash
# krbox_completion_test.sh KRBOX EXAMPLES_DIR COMPLETION MANUAL
set -uo pipefail
krbox=$1 examples=$2 completion=$3 manual=$4
source "$(dirname "$0")/cli_common.sh"
PATH=$(dirname "$krbox"):$PATH
source "$completion" || fail "cannot source $completion"
cp -a "$examples/Robot Basics" "$work/lib"
cp -a "$examples/Robot Basics.lbf" "$work/lib.lbf"
cd "$work" || exit 1

# The replies, sorted and joined by "|", for the last of the words as bash splits them; a
# ":" word was typed with no blanks around it.
expect() {
  local want=$1 line
  shift
  line="krbox $*"
  COMP_WORDS=(krbox "$@") COMP_CWORD=$# COMP_LINE=${line// : /:} COMPREPLY=()
  COMP_POINT=${#COMP_LINE}
  _krbox
  local got
  got=$(printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd'|')
  [[ $got == "$want" ]] || fail "krbox $*: got [$got], expected [$want]"
}

expect 'set-tooltip' se
expect 'merge-listing' help me
expect 'show' --json sh
expect '--format' new x --f
expect 'zip' pack lib --format z
expect 'lib|lib.lbf' add lib Motions --json l
expect '' set-tooltip lib Motions ''
expect 'Motions/Dances/Party|Motions/Dances/Party/' show lib Motions/Dances/Pa
expect 'Motions|Motions/' show lib -- Mo
expect 'Motions/Dances/Party|Motions/Dances/Party/' --quiet mv lib.lbf x Motions/Dances/P
expect 'Motions/Walk\ /\ Turn|Motions/Walk\ /\ Turn/' rm lib Motions/W
expect 'Misc./Tests/Wait\ 1/2\ s' show lib 'Misc./Tests/Wait\ 1'
expect 'Sounds/Voices/Greetings\ \&\ Goodbyes/Wave:\ Goodbye' show lib 'Sounds/Voices/Greetings\ \&\ Goodbyes/W'
expect "'Motions/Dances/Party/Robot Dance" show lib "'Motions/Dances/Party/R"
expect '"Sensing/Look: Up?' show lib '"Sensing/Lo'
expect '\ Front\ /\ Rear' show lib Sensing/Touch/Head : '\ Fr'

# The manual page tells of every command the tool lists, and groff reads it without a word.
for name in $("$krbox" --help | sed -n '/^commands:/,/^$/s/^  \([^ ]*\).*/\1/p'); do
  grep -qF "\\fBkrbox\\fR \\fB${name//-/\\-}\\fR" "$manual" || fail "no $name in $manual"
done
! command -v groff >/dev/null || [[ -z $(groff -man -ww -z "$manual" 2>&1) ]] ||
  fail "groff warns on $manual"

[[ $failures -eq 0 ]] || exit 1
echo "all completion checks passed"
