# Completion of treectl(1) for bash: commands, options, servers, and addresses from the live tree.

# Prints the addresses in the node that $1 begins with, of the server $2 if that is not empty.
_treectl_addresses() {
  local server=$2 parent=${1%/*} name
  if [ -z "$server" ] && [ -z "${parent#/}" ]; then
    treectl --timeout 0.3 -q servers 2>/dev/null | while IFS=$'\t' read -r name _; do
      printf '%s\n' "/$name/"
    done
    return
  fi
  treectl --timeout 0.3 -q ${server:+-s "$server"} list "${parent:-/}" 2>/dev/null
}

# Offers those lines of the input that begin with $1, quoted. "compgen -W" would expand them, and the
# name of a server may have "$(...)".
_treectl_offer() {
  local line
  while IFS= read -r line; do
    case $line in "$1"*)
      printf -v line '%q' "$line"
      COMPREPLY+=("$line")
      ;;
    esac
  done
}

_treectl() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  local commands='servers list get set describe watch wait dump restore diff record replay help'
  local options='--json --server --timeout --quiet --color --version --help'
  local command='' server='' i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      -s | --server) server=${COMP_WORDS[++i]} ;;
      --timeout | --color | --wait | --for | --count | --every | --speed | -o | --output) ((++i)) ;;
      -*) ;;
      *) [ -n "$command" ] || command=${COMP_WORDS[i]} ;;
    esac
  done
  case $before in
    -s | --server | --wait)
      _treectl_offer "$word" < <(treectl --timeout 0.3 -q servers 2>/dev/null | cut -f 1)
      return
      ;;
    --color)
      mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$word")
      return
      ;;
    -o | --output)
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --timeout | --for | --count | --every | --speed) return ;;
  esac
  case $command in
    servers) options+=' --wait' ;;
    list) options+=' --recursive --long' ;;
    get) options+=' --raw' ;;
    set) options+=' --stop --protected --array --stdin' ;;
    watch) options+=' --time --count --for --changes --every --csv --live --plot --fail-on-loss' ;;
    wait) options+=' --for' ;;
    dump) options+=' --output' ;;
    restore) options+=' --dry-run --protected' ;;
    record) options+=' --output --for' ;;
    replay) options+=' --speed --as-fast-as-possible --protected' ;;
  esac
  case $word in
    -*)
      mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
      return
      ;;
  esac
  case $command in
    '' | help)
      mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
      return
      ;;
    restore | replay | diff) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    servers) return ;;
  esac
  _treectl_offer "$word" < <(_treectl_addresses "$word" "$server")
  case ${COMPREPLY[0]-} in
    */) compopt -o nospace 2>/dev/null ;;
  esac
}

complete -F _treectl treectl
