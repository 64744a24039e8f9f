# What script/demo and script/demo-fleet share; they source it.

# build [OPTION ...]: builds the preset release, with options for CMake.
build() {
  echo "Building (the first time takes a minute) ..."
  mkdir -p build
  if ! cmake --preset release "$@" >build/demo.log 2>&1; then
    cat build/demo.log >&2
    exit 1
  fi
  # Ninja counts its steps on a terminal.
  if [ -t 1 ]; then
    cmake --build build/release || exit 1
  elif ! cmake --build build/release >build/demo.log 2>&1; then
    cat build/demo.log >&2
    exit 1
  fi

  # Where the shell's "help" finds its manual page.
  mkdir -p build/release/man/man1
  cp man/treescope.1 build/release/man/man1/
  export MANPATH="$PWD/build/release/man:${MANPATH-}"
  manual="the manual; q leaves it"
  if ! command -v man >/dev/null; then
    manual='needs "man"; on Debian: apt-get install man-db'
  fi
}

# What ends with the demo, in this order.
running=()
finish() {
  local process
  for process in "${running[@]}"; do
    kill "$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
  done
}

# start LINE PROGRAM [ARGUMENT ...]: starts a program and waits until it prints LINE. It has a
# session of its own, so that a Ctrl-C typed in the shell is the shell's.
start() {
  local wanted=$1 program=$2 line ready
  shift 2
  exec {ready}< <(exec setsid "build/release/bin/$program" "$@")
  running=($! "${running[@]}")
  if ! read -r -t 20 line <&"$ready" || [ "$line" != "$wanted" ]; then
    echo "script/demo: $program did not start" >&2
    exit 1
  fi
}

# The shell, at a terminal.
shell() {
  if [ "$(stty size)" = "0 0" ]; then
    echo "This terminal does not know its size, as a serial line: listings stop before every name. Use"
    echo "    \$stty rows 24 cols 80"
  fi
  build/release/bin/treescope
}

# tour COMMANDS: shows a command string and what it prints.
tour() {
  printf "\$ treescope -c '%s'\n" "$1"
  build/release/bin/treescope -c "$1"
  echo
}
