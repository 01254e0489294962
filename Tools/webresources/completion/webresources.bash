# bash completion for webresources. Commands and options come from the command's own --help.

_webresources() {
  local current=${COMP_WORDS[COMP_CWORD]} command='' word offered
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ -n $command || $word == -* || $word == help ]] || command=$word
  done
  if [[ -n $command && $current != -* ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  offered=$("${COMP_WORDS[0]}" ${command:+"$command"} --help |
    sed -n -e '/^Subcommands:/,$s/^  \([a-z]*\) .*/\1/p' \
      -e 's/^  *\(-., *\)\{0,1\}\(--[a-z-]*\).*/\2/p')
  mapfile -t COMPREPLY < <(compgen -W "$offered" -- "$current")
}

complete -o filenames -F _webresources webresources
