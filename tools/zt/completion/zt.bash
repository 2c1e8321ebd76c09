# Completion of zt for bash. The tool itself says which commands, options, databases, tables, indexes and fields there
# are.

# Offers those lines of standard input that begin with the current word, quoted for the shell.
_zt_offer() {
  local line
  while IFS= read -r line; do
    [[ -n $line && $line == "$current"* ]] && COMPREPLY+=("$(printf '%q' "$line")")
  done
}

# Column $1 of what the rest of the words print, without its title.
_zt_column() {
  local column=$1
  shift
  zt "$@" --tsv 2>/dev/null | cut -f "$column" | tail -n +2
}

# Behind a database: its tables, then what the command takes with one.
_zt_of_database() {
  local database=${words[1]} table=${words[2]}
  if [[ $previous == --index ]]; then
    _zt_offer < <(zt schema "$database" "$table" --tsv 2>/dev/null | awk -F'\t' '$2 == "index" {print $4}')
  elif ((${#words[@]} == 2)); then
    _zt_offer < <(_zt_column 2 tables "$database")
  elif [[ ${words[0]} == insert || ${words[0]} == set ]]; then
    _zt_offer < <(zt schema "$database" "$table" --tsv 2>/dev/null | awk -F'\t' '$2 == "field" {print $4 "="}')
    compopt -o nospace 2>/dev/null
  fi
}

_zt() {
  local current=$2 previous=$3 word words=()
  COMPREPLY=()
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word == -* || $word == = ]] || words+=("$word")
  done
  case $previous in
    --color) _zt_offer <<<$'auto\nalways\nnever'; return ;;
    --encoding | --stored-encoding) _zt_offer <<<$'UTF-8\nGBK\nGB18030'; return ;;
    --format) _zt_offer <<<$'csv\njsonl\ntext\nbinary\nimage\ndump'; return ;;
    --as) _zt_offer <<<$'toml\njson'; return ;;
    --schema | --reject) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
  esac
  if [[ $current == -* ]]; then
    _zt_offer < <(zt --words "${words[0]}" 2>/dev/null | grep '^-')
  elif ((${#words[@]} == 0)); then
    _zt_offer < <(zt --words '' 2>/dev/null)
  elif ((${#words[@]} == 1)) && [[ ${words[0]} != bench ]]; then
    # Databases of this host; of others, files.
    _zt_offer < <(_zt_column 1 ls)
    ((${#COMPREPLY[@]})) || mapfile -t COMPREPLY < <(compgen -f -- "$current")
  else
    case ${words[0]} in
      get | count | insert | set | delete | schema) _zt_of_database ;;
      import | export)
        if ((${#words[@]} == 2)); then
          _zt_of_database
        else
          mapfile -t COMPREPLY < <(compgen -f -- "$current")
        fi
        ;;
      bench) ;;
      *) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    esac
  fi
}

complete -F _zt zt
