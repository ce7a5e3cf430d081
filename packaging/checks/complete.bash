# shellcheck shell=bash
# complete.bash FOLDER WORD...: what bash offers for the last of WORD, one a line.
set -eu
# shellcheck source=packaging/completions/velta-mcp.bash
. "$1/velta-mcp.bash"
shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
COMP_LINE="$*" COMP_POINT="${#COMP_LINE}"
registered="$(complete -p velta-mcp)"
function="${registered#*-F }"
"${function%% *}" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
if [ "${#COMPREPLY[@]}" -gt 0 ]; then printf '%s\n' "${COMPREPLY[@]}"; fi
