# What the scripts share; sourced, not run. Leaves the shell in the source root,
# and ends the script where it is asked for help.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '==> %s\n' "$*"; }
die() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# wrong_usage WORD...: as die, with the exit status for a wrong command line.
wrong_usage() {
  printf '%s: %s; see --help\n' "$(basename "$0")" "$*" >&2
  exit 2
}

# no_more_arguments [ARGUMENT...]: there must be none.
no_more_arguments() { [ $# = 0 ] || wrong_usage "unknown argument '$1'"; }

# need_value OPTION [VALUE]: there must be one, and no other option.
need_value() { [[ "${2:-}" =~ ^[^-] ]] || wrong_usage "$1 needs a value"; }

# need_number NAME [VALUE]: there must be one, a whole number from 1.
need_number() {
  [[ "${2:-}" =~ ^[1-9][0-9]*$ ]] || wrong_usage "$1 needs a whole number from 1${2:+, not '$2'}"
}

# Help is the comment that the script opens with.
for argument; do
  case $argument in
    -h | --help)
      sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/$(basename "$0")"
      exit 0
      ;;
  esac
done

torvane_cache_dir=${TORVANE_CACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/torvane}

# A compiler cache is used where it is installed, by what is configured from here
# on. It passes on what is compiled with a precompiled header: told to keep that
# as well (CCACHE_SLOPPINESS=pch_defines), it overlooks macros that have changed.
if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
fi

# build PRESET [TARGET...]: configures where needed and builds, or ends the
# script. All that the tools print is in build/PRESET/build.log.
build() {
  mkdir -p "build/$1"
  with_progress "build/$1/build.log" configure_and_build "$@" || die "the build failed ($1)"
}

configure_and_build() {
  local preset=$1
  shift
  [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" || return
  cmake --build --preset "$preset" ${1:+--target "$@"}
}

# with_progress LOG COMMAND...: runs a command that builds. Shows only how far it
# is and, where it fails, what else it has printed.
with_progress() {
  local log=$1
  shift
  NINJA_STATUS='[%f/%t] ' "$@" 2>&1 | tee "$log" | show_progress ||
    { grep -vE '^\[[0-9]+/[0-9]+\] ' "$log" >&2; return 1; }
}

# Reads what a build prints, and shows how many of its steps are done: on a
# terminal in one line that changes, elsewhere a line for each tenth of the way.
show_progress() {
  local line step steps tenth=0
  while IFS= read -r line; do
    [[ $line =~ ^\[([0-9]+)/([0-9]+)\]\  ]] || continue
    step=${BASH_REMATCH[1]} steps=${BASH_REMATCH[2]}
    if [ -t 1 ]; then
      printf '\r[%*d/%d]\e[K' ${#steps} "$step" "$steps"
    elif ((10 * step / steps > tenth)); then
      tenth=$((10 * step / steps))
      printf '[%*d/%d]\n' ${#steps} "$step" "$steps"
    fi
  done
  [ ! -t 1 ] || printf '\r\e[K'
}

# fetch_source PACKAGE INTO [SUITE]: downloads the original source of Debian's
# source package, of this system's own suite where none is given, into the
# folder INTO. It comes from the archive that apt already uses.
fetch_source() {
  local package=$1 into=$2 suite=${3:-} uri own_suite apt_dir fetched=0
  read -r own_suite uri < <(
    apt-get indextargets --format '$(ORIGIN) $(COMPONENT) $(CODENAME) $(REPO_URI)' 'Created-By: Packages' |
      awk '$1 == "Debian" && $2 == "main" && $3 !~ /-/ { print $3, $4; exit }'
  ) || die "apt knows no Debian archive to get the source of $package from: add one and run again"
  apt_dir=$(mktemp -d)
  mkdir -p "$apt_dir/lists/partial" "$into"
  echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $uri ${suite:-$own_suite} main" \
    >"$apt_dir/sources.list"
  local options=(-qq -o "Dir::Etc::sourcelist=$apt_dir/sources.list" -o Dir::Etc::sourceparts=-
    -o "Dir::State::lists=$apt_dir/lists" -o APT::Sandbox::User=root)
  (
    cd "$into"
    apt-get "${options[@]}" update &&
      apt-get "${options[@]}" source --only-source --download-only --tar-only "$package" >/dev/null
  ) || fetched=$?
  rm -rf "$apt_dir"
  return "$fetched"
}
