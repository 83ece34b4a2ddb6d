# bash completion for qxdb, which says itself what may stand next.
_qxdb() {
  local word=${COMP_WORDS[COMP_CWORD]} line ending file
  [ "$word" = = ] && word=
  COMPREPLY=()
  while IFS= read -r line; do
    case $line in
      :files*)
        compopt -o filenames 2>/dev/null
        while IFS= read -r file; do
          if [ "$line" = :files ] || [ -d "$file" ]; then
            COMPREPLY+=("$file")
            continue
          fi
          for ending in ${line#:files}; do
            [[ ${file,,} == *"$ending" ]] && COMPREPLY+=("$file")
          done
        done < <(compgen -f -- "$word")
        ;;
      *) COMPREPLY+=("${line%%$'\t'*}") ;;
    esac
  done < <("${COMP_WORDS[0]}" complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -F _qxdb qxdb
