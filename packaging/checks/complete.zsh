# complete.zsh FOLDER WORD...: what zsh offers for the last of WORD, one a line. Completion works in
# an interactive shell only, so one is started on a terminal of its own, and Tab is pressed in it.
emulate -R zsh
zmodload zsh/zpty
folder=$1
shift
line="$*"

zpty shell zsh -f -i
# In the shell: each match is printed between the markers as it is added, then the shell ends.
zpty -w shell "PROMPT= RPROMPT=; unsetopt zle_bracketed_paste prompt_cr; fpath=(${(qq)folder} \$fpath)"
zpty -w shell 'autoload -Uz compinit && compinit -D -u'
zpty -w shell 'compadd() {
  if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then builtin compadd "$@"; return; fi
  local -a found
  builtin compadd -O found "$@"
  (( $#found )) && print -rl -- "<"${^found}">"
  builtin compadd "$@"
}
endOfMatches() { print -r -- "<end>"; exit }
comppostfuncs=(endOfMatches)
bindkey "^I" complete-word
print "<be""gin>"'
while zpty -r shell text '*<begin>*' 2>/dev/null; do break; done
zpty -w -n shell "$line"$'\t'
output=
while zpty -r shell text; do
  output+=$text
  [[ $output == *'<end>'* ]] && break
done
zpty -d shell
print -r -- "$output" | tr -d '\r' | sed -n '/^.*<end>/d; s/^.*<\(.*\)>$/\1/p'
