# bash completion for webresources

_webresources() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=${COMP_WORDS[1]} options
  COMPREPLY=()
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W 'pack check diff plan install verify installcheck status
      --help --version' -- "$current")
    return
  fi
  case $command in
    pack)
      options='--update-id --output --clear --regenerate --exclude --keep --require --follow
        --create --quiet --json --help'
      ;;
    check) options='--prove --max-size --quiet --json --help' ;;
    diff) options='--max-size --quiet --json --help' ;;
    plan) options='--root --force --allow-downgrade --ignore-modes --max-size --quiet --json --help' ;;
    status) options='--root --ignore-modes --quiet --json --help' ;;
    install)
      options='--dry-run --force --allow-downgrade --ignore-modes --max-size --wait --quiet --json
        --help'
      ;;
    verify | installcheck) options='--root --ignore-modes --quiet --json --help' ;;
  esac
  case $previous in
    --update-id | --exclude | --keep | --require | --max-size | --wait) return ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
  fi
}

complete -o filenames -F _webresources webresources
