# shellcheck shell=bash
# Sourced by the scripts of this folder: working directory, progress lines and locks.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then
  bold=$'\e[1m' red=$'\e[31m' plain=$'\e[0m'
else
  bold='' red='' plain=''
fi

say() { printf '%s==>%s %s\n' "$bold" "$plain" "$*"; }

fail() {
  printf '%s%s: %s%s\n' "$red" "$(basename "$0")" "$*" "$plain" >&2
  exit 1
}

# timed WHAT COMMAND...: the command between two progress lines; a failure ends the script.
# How long it took goes to the file KORIVA_TIMES too, if there is one.
timed() {
  local what=$1 start=$SECONDS took
  shift
  step=$what
  say "$what"
  "$@"
  step=''
  took=$((SECONDS - start))
  say "$what: done in $took s"
  [ -z "${KORIVA_TIMES:-}" ] || printf '%6d s  %s\n' "$took" "$what" >>"$KORIVA_TIMES"
}

step=''
report_failed_step() { [ -z "$step" ] || printf '%s==> FAILED: %s%s\n' "$red" "$step" "$plain" >&2; }
trap report_failed_step EXIT

# locked FOLDER COMMAND...: the command, while no other script works in that folder.
# The folder itself is what is locked, so that no lock file can be left behind.
locked() {
  local folder=$1 descriptor
  shift
  mkdir -p "$folder"
  exec {descriptor}<"$folder"
  if ! flock --nonblock "$descriptor"; then
    say "Waiting for another script that works in $folder"
    flock "$descriptor"
  fi
  "$@"
  exec {descriptor}<&-
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  cmake --preset "$preset" --log-level=NOTICE
  cmake --build --preset "$preset" ${@:+--target "$@"}
}

sdk_version() {
  sed -nE 's/^#define KORIVA_SDK_VERSION_(MAJOR|MINOR|PATCH) ([0-9]+).*/\2/p' KorivaSDK/KRVersion.h |
    paste -sd .
}

# The installed headers, as the build lists them.
public_headers() {
  local folder
  for folder in KorivaSDK testing; do
    sed -nE "s|^ +\.\./([a-z]+/[A-Za-z]+\.h)\)?\$|\1|p; s|^ +([A-Za-z]+\.h)\)?\$|$folder/\1|p" \
      "$folder/CMakeLists.txt"
  done
}
