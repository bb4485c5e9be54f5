# Completion of bash for vantrell-harbor-updatectl.
_vantrell_harbor_updatectl() {
  local words=
  case $COMP_CWORD-${COMP_WORDS[1]} in
    1-*) words='status watch check apply ring window log pause resume id seed support --help' ;;
    2-status) words=--json ;;
    2-check) words=--wait ;;
    2-ring) words='dev beta prod' ;;
    2-log) words=-f ;;
    2-seed | 2-support) compopt -o default ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -F _vantrell_harbor_updatectl vantrell-harbor-updatectl
