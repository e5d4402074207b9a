# What the scripts share; to be sourced. Leaves the caller in the root of the tree.

cd "$(dirname "${BASH_SOURCE[0]}")/.."

step() { printf '== %s\n' "$*" >&2; }

die() {
  printf 'scripts/%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

jobs_here() { nproc 2>/dev/null || echo 2; }

# Ninja itself notices changed CMake files, but neither a changed preset nor another option.
is_configured() {
  local cache=build/$1/CMakeCache.txt option
  [[ build/$1/build.ninja -nt CMakePresets.json ]] || return 1
  for option in "${@:2}"; do
    grep -q "^${option%%=*}:[A-Z]*=${option#*=}$" "$cache" || return 1
  done
}

# configure PRESET [VARIABLE=VALUE...]: only when something of it changed.
configure() {
  is_configured "$@" && return 0
  step "configure build/$1"
  local preset=$1
  shift
  cmake --preset "$preset" --log-level=WARNING "${@/#/-D}" >/dev/null
}

# build PRESET [CMAKE_BUILD_OPTION...]
build() {
  local preset=$1
  shift
  step "build build/$preset"
  cmake --build --preset "$preset" --parallel "$(jobs_here)" "$@"
}
