# Completion for bash: the options, and the option word of a LINE that begins with a quote.
_brimlet_check() {
  local word=${COMP_WORDS[COMP_CWORD]}
  local line=${word#[\"\']}
  local program=${line%% *} option=${line#* } forms
  COMPREPLY=()
  if [[ $line != *' '* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--grammar --help --version' -- "$word")
  elif [[ $option != *' '* ]]; then
    forms=$(brimlet-check --grammar 2>/dev/null | sed -n '/^$/q; s/^[^ ]* //p')
    mapfile -t COMPREPLY < <(compgen -P "$program " -W "$(cut -d' ' -f1 <<<"$forms")" -- "$option")
    # Where arguments follow, a second match keeps the quote open.
    if [[ ${#COMPREPLY[@]} = 1 && $'\n'$forms == *$'\n'"${COMPREPLY[0]#* } "* ]]; then
      COMPREPLY=("${COMPREPLY[0]} " "${COMPREPLY[0]}  ")
    fi
  fi
}
complete -F _brimlet_check brimlet-check
