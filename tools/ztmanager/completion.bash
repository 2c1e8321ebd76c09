# Completion of ztmanager's options for bash.
_ztmanager() {
  local current=$2 previous=$3
  COMPREPLY=()
  case $previous in
    --folder) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    --log-level) mapfile -t COMPREPLY < <(compgen -W 'debug info warning error off' -- "$current") ;;
    --version-text | --port | --max-clients | --login-time | --clear-interval | --shutdown-time) ;;
    *)
      if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--help --version-text --port --folder --max-clients --login-time
          --clear-interval --shutdown-time --log-level' -- "$current")
      else
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
      fi
      ;;
  esac
}
complete -o filenames -F _ztmanager ztmanager
