# bash completion of calcut. Subcommands, options and their words come from its own help.
_calcut() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} sub word help
  [[ $previous == = ]] && previous=${COMP_WORDS[COMP_CWORD - 2]}
  [[ $current == = ]] && previous=${COMP_WORDS[COMP_CWORD - 1]} current=
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word == [a-z]* ]] && { sub=$word; break; }
  done
  [[ $previous == = ]] && previous=${COMP_WORDS[COMP_CWORD - 1]}
  help=$(calcut ${sub:+"$sub"} --help 2>/dev/null)
  if [[ $previous == --* && $help =~ [[:space:],]"$previous "[A-Z]+:\{([a-z0-9,-]+)\} ]]; then
    COMPREPLY=($(compgen -W "${BASH_REMATCH[1]//,/ }" -- "$current"))
  elif [[ $current == -* ]]; then
    COMPREPLY=($(compgen -W "$(grep -oE '^ +-[^ ]+' <<<"$help" | tr ',' ' ')" -- "$current"))
  elif [[ -z $sub || $sub == help ]]; then
    [[ $sub == help ]] && help=$(calcut --help 2>/dev/null)
    COMPREPLY=($(compgen -W "$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p' <<<"$help")" \
      -- "$current"))
  fi
}
complete -o default -F _calcut calcut
