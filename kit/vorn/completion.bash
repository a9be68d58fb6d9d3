# Completion of `vorn` for bash: verbs, their options, and files. The programs themselves say what they
# take.
_vorn() {
  local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[0]} at words
  if [ "$COMP_CWORD" = 1 ]; then
    words=$("$command" --help=names 2>/dev/null)
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
    return
  fi
  # Behind `--` stands a program with words of its own.
  for ((at = 2; at < COMP_CWORD; at++)); do
    [ "${COMP_WORDS[at]}" != -- ] || return
  done
  if [[ $word == -* ]]; then
    words=$("$command" "${COMP_WORDS[1]}" --help=names 2>/dev/null)
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  fi
}
complete -o bashdefault -o default -F _vorn vorn
