# What the scripts share; sourced, not run. Changes to the source root. If the
# script is called with --help, prints its help and ends it.

set -euo pipefail
# Of folders of the caller's, which "cd scripts" could go to.
unset CDPATH
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '==> %s\n' "$*"; }
die() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# wrong_usage WORD...: like die, with the exit status for a wrong command line.
wrong_usage() {
  printf '%s: %s; see --help\n' "$(basename "$0")" "$*" >&2
  exit 2
}

# no_more_arguments [ARGUMENT...]: ends the script if there is any.
no_more_arguments() { [ $# = 0 ] || wrong_usage "unknown argument '$1'"; }

# need_value OPTION [VALUE]: ends the script if the value is missing or an option.
need_value() { [[ "${2:-}" =~ ^[^-] ]] || wrong_usage "$1 needs a value"; }

# need_number NAME [VALUE]: ends the script if the value is not a whole number
# from 1.
need_number() {
  [[ "${2:-}" =~ ^[1-9][0-9]*$ ]] || wrong_usage "$1 needs a whole number from 1${2:+, not '$2'}"
}

# Help is the comment at the top of the script.
for argument; do
  case $argument in
    -h | --help)
      sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/$(basename "$(readlink -f "$0")")"
      exit 0
      ;;
  esac
done

torvane_cache_dir=${TORVANE_CACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/torvane}

# Configures builds with ccache if it is installed. It does not cache what is
# compiled with a precompiled header. With CCACHE_SLOPPINESS=pch_defines it would,
# but would then overlook macros that have changed.
if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
fi

# build PRESET [TARGET...]: configures and builds; ends the script on failure. What
# CMake did not find the last time may have been installed since. All output of the
# tools goes to build/PRESET/build.log.
build() {
  mkdir -p "build/$1"
  with_progress "build/$1/build.log" configure_and_build "$@" || die "the build failed ($1)"
}

configure_and_build() {
  local preset=$1
  shift
  cmake --preset "$preset" || return
  cmake --build --preset "$preset" ${1:+--target "$@"}
}

# with_progress LOG COMMAND...: runs a command that builds. Shows only its
# progress and, if it fails, its other output.
with_progress() {
  local log=$1
  shift
  NINJA_STATUS='[%f/%t] ' "$@" 2>&1 | tee "$log" | show_progress ||
    { grep -vE '^\[[0-9]+/[0-9]+\] ' "$log" >&2; return 1; }
}

# Reads the output of a build, and shows how many of its steps are done: on a
# terminal in one line that changes, elsewhere with one line for each tenth.
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
# source package into the folder INTO, from the archive that apt already uses; if
# that is none of Debian's, as on Ubuntu, from deb.debian.org. SUITE defaults to
# this system's own.
fetch_source() {
  local package=$1 into=$2 suite=${3:-} uri own_suite apt_dir fetched=0
  read -r own_suite uri < <(
    apt-get indextargets --format '$(ORIGIN) $(COMPONENT) $(CODENAME) $(REPO_URI)' 'Created-By: Packages' |
      awk '$1 == "Debian" && $2 == "main" && $3 !~ /-/ { print $3, $4; exit }'
  ) || uri=http://deb.debian.org/debian own_suite=
  [ -n "${suite:-$own_suite}" ] || die "apt knows no Debian archive to get the source of $package from: add one and run again"
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
