#!/usr/bin/env bash
# varnolt-cli's bash completion, row by row: the command line typed so far (the cursor at its
# end), TROVEX_PORTS, and the completions offered, in a folder with two packages, a text file
# and a sub-folder.
#   tst_bash_completion.sh COMPLETION_SCRIPT
set -uo pipefail
source "$1"
cd "$(mktemp -d)" || exit 1
touch a.KDPKG b.kdpkg notes.txt
mkdir firmware

rows=(
  # typed                                   | TROVEX_PORTS          | offered
  "varnolt-cli |                                                    | update verify read restore info ports doctor --help --version"
  "varnolt-cli r|                                                   | read restore"
  "varnolt-cli verify a.KDPKG --|                                   | --port --language --log --json --quiet --max-baud --help"
  "varnolt-cli read a.KDPKG --o|                                    | --out"
  "varnolt-cli restore a.KDPKG n|                                   | notes.txt"
  "varnolt-cli restore a.KDPKG notes.txt --a|                       | --at"
  "varnolt-cli update a.KDPKG --s|                                  | --same-instrument"
  "varnolt-cli d|                                                   | doctor"
  "varnolt-cli update |                                             | a.KDPKG b.kdpkg firmware"
  "varnolt-cli info b|                                              | b.kdpkg"
  "varnolt-cli update a.KDPKG --p|                                  | --port"
  "varnolt-cli update a.KDPKG --port com|com9=/dev/ttyUSB0; COM1=x  | COM1 COM2 COM3 COM4 COM5 COM6 COM7 COM8 COM9"
  "varnolt-cli update a.KDPKG -p G|                                 | GPIB0"
  "varnolt-cli update a.KDPKG --language |                          | "
  "varnolt-cli update a.KDPKG --log n|                              | notes.txt"
  "varnolt-cli info a.KDPKG --|                                     | --json --help"
  "varnolt-cli doctor --|                                           | --loopback --help"
  "varnolt-cli doctor COM1 gp|                                      | GPIB0"
  "varnolt-cli ports |                                              | "
)
passed=0
failed=0
for row in "${rows[@]}"; do
  IFS='|' read -r typed ports offered <<< "$row"
  offered=$(xargs <<< "$offered")
  export TROVEX_PORTS=$(xargs <<< "$ports")
  read -ra COMP_WORDS <<< "$typed"
  [[ $typed == *" " ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  _varnolt_cli
  got=$(printf '%s\n' "${COMPREPLY[@]}" | sort | xargs)
  wanted=$(tr ' ' '\n' <<< "$offered" | sort | xargs)
  if [[ $got == "$wanted" ]]; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "FAIL: '$typed' offered '$got', expected '$wanted'"
  fi
done
echo "completion: $passed passed, $failed failed"
((failed == 0))
