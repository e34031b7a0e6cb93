# bash completion for wqz-usbcam. The tool itself knows its verbs, options and cameras.
_wqz_usbcam()
{
    local words typed word rest
    # Split by spaces only: bash also splits at : and =, which names of cameras and settings contain.
    read -ra words <<<"${COMP_LINE:0:COMP_POINT}"
    [[ ${COMP_LINE:0:COMP_POINT} != *[[:space:]] ]] || words+=("")
    typed=${words[${#words[@]} - 1]}
    COMPREPLY=()
    while IFS=$'\t' read -r word rest; do
        if [[ $word == '<file>' ]]; then
            compopt -o default 2>/dev/null
        else
            [[ $word != *= ]] || compopt -o nospace 2>/dev/null
            # bash replaces only what stands behind the last : or =.
            [[ $typed != *[:=]* ]] || word=${word#"${typed%"${typed##*[:=]}"}"}
            COMPREPLY+=("$word")
        fi
    done < <("${words[0]}" complete-words "${words[@]:1}" 2>/dev/null)
}
complete -F _wqz_usbcam wqz-usbcam
