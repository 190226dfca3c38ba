#!/usr/bin/env bash
# The demonstration itself. Run by scripts/demo.sh in a mount namespace of its own:
#
#   scripts/demo_session.sh DAEMON MAIN-PROGRAM POLICY [LINE...]
#
# POLICY is the bus policy for a private bus, or "installed" for the system bus of the machine.
set -euo pipefail

# Relative paths: they hold although the mount hides what lies below /opt.
daemon=$1
main_program=$2
policy=$3
shift 3
core=/opt/apps/com.tolvane.brimlet/files/orvix/bin/OrvixCore
main=/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet
failures=0
requests=0

if [ -t 1 ]; then
  bold=$'\e[1m' dim=$'\e[2m' green=$'\e[32m' red=$'\e[31m' plain=$'\e[0m'
else
  bold='' dim='' green='' red='' plain=''
fi

# --- the private machine --------------------------------------------------------------------------

install_application() {
  mount -t tmpfs -o mode=0755 brimlet-demo /opt
  mkdir -p "${core%/*}" "${main%/*}"
  cp "$(command -v busctl)" "$core"
  cp "$main_program" "$main"
}

start_bus() {
  mkdir "$folder/system.d"
  cp tests/bus.conf "$folder/"
  cp "$policy" "$folder/system.d/"
  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$folder/bus
  dbus-daemon --nofork --config-file="$folder/bus.conf" --address="$DBUS_SYSTEM_BUS_ADDRESS" \
    2>"$folder/bus.log" &
  bus_pid=$!
  for _ in $(seq 100); do
    [ ! -S "$folder/bus" ] || return 0
    sleep 0.05
  done
  cat "$folder/bus.log" >&2
  return 1
}

# Starts the main program, which starts the daemon.
start_main() {
  mkdir "$folder/home"
  mkfifo "$folder/to_main" "$folder/from_main"
  HOME=$folder/home "$main" "$daemon" \
    <"$folder/to_main" >"$folder/from_main" 2>"$folder/stderr" &
  main_pid=$!
  exec {to_main}>"$folder/to_main" {from_main}<"$folder/from_main"
  read -r started <&"$from_main"
  daemon_pid=${started##* }
  read -r ready <&"$from_main" || true
  if [ "$ready" != ready ]; then
    echo "The daemon did not get ready: $ready" >&2
    cat "$folder"/*.log "$folder/stderr" "$folder"/home/Brimlet/log/* >&2
    exit 1
  fi
}

# kill_tree PID: ends a process and what it has started, down to a command that still runs.
kill_tree() {
  local child
  for child in $(cat "/proc/$1/task/$1/children" 2>/dev/null); do
    kill_tree "$child"
  done
  kill -KILL "$1" 2>/dev/null || true
}

# Ends everything that was started, by its process id, and leaves nothing behind.
clean_up() {
  trap '' INT TERM
  local pid
  for pid in ${main_pid:-} ${bus_pid:-}; do
    kill_tree "$pid"
  done
  # Without the shell's word about each of them.
  { wait; } 2>/dev/null
  rm -rf "$folder"
}

# --- requests and replies -------------------------------------------------------------------------

# shorten TEXT: at most 74 characters of it, on one line.
shorten() {
  local text=${1//$'\n'/\\n}
  if [ ${#text} -gt 74 ]; then
    text="${text:0:54}... (${#1} characters)"
  fi
  printf '%s' "${text:-(the empty string)}"
}

# call CLIENT LINE: the reply to one request, or why there is none.
call() {
  local reply
  if reply=$("$1" call com.tolvane.brimlet /com/tolvane/brimlet com.tolvane.brimlet \
    brimletd s -- "$2" 2>&1); then
    reply=${reply#s \"}
    printf '%b' "${reply%\"}"
  else
    printf 'none (%s)' "${reply#Call failed: }"
  fi
}

# show FROM LINE REPLY WHY
show() {
  requests=$((requests + 1))
  printf '%s%2d  from     %s%s\n' "$bold" "$requests" "$1" "$plain"
  printf '    request  %s\n' "$(shorten "$2")"
  printf '    reply    %s\n' "$(shorten "$3")"
  [ -z "$4" ] || printf '    %sbecause  %s%s\n' "$dim" "$4" "$plain"
}

# judge EXPECTED REPLY
judge() {
  if [ "$1" = "$2" ]; then
    printf '    %sright%s\n\n' "$green" "$plain"
  else
    printf '    %swrong: expected %s%s\n\n' "$red" "$(shorten "$1")" "$plain"
    failures=$((failures + 1))
  fi
}

# expect REPLY LINE WHY: a request of the casting engine.
expect() {
  local reply
  reply=$(call "$core" "$2")
  show "OrvixCore" "$2" "$reply" "$3"
  judge "$1" "$reply"
}

show_requests() {
  local failed="ExecutePopen failed!" reply
  local psk=0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef
  expect "--add" "echo --add" \
    "--add takes no argument; echo stands for the program that does the work"
  expect "--setIP orvix0 192.168.1.1" "echo --setIP orvix0 192.168.1.1" \
    "the interface is orvix0, the address is well-formed"
  expect "--hostapd 36 abcdefgh_1234567 $psk cn" "echo --hostapd 36 abcdefgh_1234567 $psk cn" \
    "channel 36 to 177, a word of 16 bytes, one of 64, one or two more words"
  expect "--disconbt hci0 aa:bb:cc:dd:ee:0f" "echo --disconbt hci0 aa:bb:cc:dd:ee:0f" \
    "a word and a hardware address"
  expect "" "true --search" "allowed; the command prints nothing"
  expect "$failed" "echo --add now" "refused: --add takes exactly two words"
  expect "$failed" "echo --setIP orvix0 192.168.1.256" "refused: no IPv4 address"
  expect "$failed" "echo --format disk" "refused: no such option word (see the log below)"
  expect "$failed" "echo  --add" "refused: two blanks make an empty option word"
  # shellcheck disable=SC2016  # expanded by the daemon's shell
  expect "$failed" 'seq${IFS}30000;: --add' "allowed, but the output has 102400 bytes or more"

  printf 'echo --reload\n' >&"$to_main"
  read -r reply <&"$from_main"
  show "Brimlet" "echo --reload" "$reply" "the main program is admitted too; --reload takes 7 words"
  judge "$failed" "$reply"

  reply=$(call "$(command -v busctl)" "echo --add")
  show "$(command -v busctl)" "echo --add" "$reply" "only the two installed programs are admitted"
  judge "auth failed" "$reply"

  expect "none (Message recipient disconnected from message bus without replying)" \
    "brimletd --exit" "the stop line: the daemon ends at once"
}

send_lines() {
  local line
  for line in "$@"; do
    show "OrvixCore" "$line" "$(call "$core" "$line")" ""
    echo
  done
}

# The main program stops the daemon at the end of its input and tells its exit status.
show_end() {
  local ended
  exec {to_main}>&-
  # What the main program still prints before that is a reply to its own stop line.
  ended=$(cat <&"$from_main")
  wait "$main_pid" || true
  main_pid=''
  printf '%sLog%s  %s\n' "$bold" "$plain" "~/Brimlet/log/brimletd.log"
  sed 's/^/    /' "$folder/home/Brimlet/log/brimletd.log"
  printf '\n%s\n' "$ended"
  if [ "$ended" != "brimletd ended with exit status 0" ]; then
    failures=$((failures + 1))
  fi
}

folder=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-demo-XXXXXX")
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
install_application
[ "$policy" = installed ] || start_bus
start_main
printf '%sbrimletd%s runs as process %s, a child of %s\n\n' "$bold" "$plain" "$daemon_pid" "$main"
if [ $# -gt 0 ]; then
  send_lines "$@"
else
  show_requests
fi
show_end
if [ "$failures" -gt 0 ]; then
  printf '%s%d not as expected%s\n' "$red" "$failures" "$plain"
  exit 1
fi
