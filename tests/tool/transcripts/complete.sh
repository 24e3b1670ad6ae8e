# complete.sh WORD...: prints what the completion makes of the last word.
. "$(dirname "$(command -v qeli2c)")/../share/bash-completion/completions/qeli2c"
COMP_WORDS=(qeli2c "$@")
COMP_CWORD=$#
_qeli2c
echo "$*: ${COMPREPLY[*]}"
