# Completes the command line of harbix-inspect in bash.

_harbix_inspect() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} words=
  COMPREPLY=()
  # "--to=x" is three words to bash.
  [ "$current" != = ] || current=
  [ "$previous" != = ] || previous=${COMP_WORDS[COMP_CWORD - 2]}
  if ((COMP_CWORD == 1)); then
    words='list verify checksums compare extract plan --help --version'
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    return
  fi
  case $previous in
    --to)
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --checksums)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --color)
      mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$current")
      return
      ;;
  esac
  case $command in
    list) words='--long --bytes --color' ;;
    verify) words='--checksums --notes' ;;
    extract) words='--to' ;;
    plan) words='--color' ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words --json --help" -- "$current")
  elif [[ $command == plan ]] && ((COMP_CWORD > 2)); then
    mapfile -t COMPREPLY < <(compgen -W 'app media settings' -- "$current")
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -o filenames -F _harbix_inspect harbix-inspect
