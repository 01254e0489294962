# bash completion for webresources. What it offers is read from the command's own --help.

_webresources() {
  local current=${COMP_WORDS[COMP_CWORD]} offered
  if [ "$COMP_CWORD" -eq 1 ]; then
    offered=$("$1" --help | sed -n -e '/^Subcommands:/,$s/^  \([a-z]*\) .*/\1/p' \
      -e 's/^  *\(-., *\)\{0,1\}\(--[a-z-]*\).*/\2/p')
  elif [[ $current == -* ]]; then
    offered=$("$1" "${COMP_WORDS[1]}" --help | sed -n 's/^  *\(-., *\)\{0,1\}\(--[a-z-]*\).*/\2/p')
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$offered" -- "$current")
}

complete -o filenames -F _webresources webresources
