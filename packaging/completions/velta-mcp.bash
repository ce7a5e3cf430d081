# bash completion of velta-mcp(1)                                          -*- shell-script -*-

_velta_mcp() {
  local current="${COMP_WORDS[COMP_CWORD]}" previous="${COMP_WORDS[COMP_CWORD - 1]}"
  local options="--client --admin-stats --no-reindex --version --help" actions="" i
  COMPREPLY=()
  if [ "$previous" = --client ]; then
    return # the name is the client's own
  fi
  if [ "$COMP_CWORD" -eq 1 ]; then
    actions="connect status disconnect"
  fi
  for ((i = 1; i < COMP_CWORD; i++)); do
    case "${COMP_WORDS[i]}" in
      connect | status | disconnect | --version | --help) return ;; # nothing goes with these
    esac
  done
  while IFS='' read -r i; do
    COMPREPLY+=("$i")
  done < <(compgen -W "$actions $options" -- "$current")
}
complete -F _velta_mcp velta-mcp
