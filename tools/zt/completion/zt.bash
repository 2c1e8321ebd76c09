# Completion of zt for bash. The tool itself says which commands, options and databases there are.

_zt() {
  local current=$2 previous=$3 command='' word
  COMPREPLY=()
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word == -* || $word == = ]] || { command=$word; break; }
  done
  case $previous in
    --color) mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$current"); return ;;
    --encoding | --stored-encoding) mapfile -t COMPREPLY < <(compgen -W 'UTF-8 GBK GB18030' -- "$current"); return ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(zt --words "$command" 2>/dev/null | grep '^-')" -- "$current")
  elif [[ -z $command ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(zt --words '' 2>/dev/null)" -- "$current")
  else
    # Databases of this host; of other arguments, files.
    mapfile -t COMPREPLY < <(compgen -W "$(zt ls --tsv 2>/dev/null | cut -f1 | tail -n +2)" -- "$current")
    ((${#COMPREPLY[@]})) || mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}

complete -F _zt zt
