# What the scripts share; sourced, not run. Leaves the shell in the source root.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '==> %s\n' "$*"; }
die() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# usage SCRIPT: prints the comment that SCRIPT opens with, and ends.
usage() {
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$1"
  exit 0
}

torvane_cache_dir=${TORVANE_CACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/torvane}

# build PRESET [TARGET...]: configures where needed and builds.
build() {
  local preset=$1
  shift
  [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset"
  cmake --build --preset "$preset" ${1:+--target "$@"}
}
