# Shared by the scripts: what is missing, and how to get it. Sourced, not run.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL=$jobs
export CTEST_PARALLEL_LEVEL=$jobs

# What every build needs, as Debian packages.
build_packages=(
  g++ cmake ninja-build pkg-config
  libcli11-dev libfmt-dev nlohmann-json3-dev libcairo2-dev
)
test_packages=(libgtest-dev)

missing_packages() {
  local package
  for package in "$@"; do
    dpkg-query -W -f '${Status}\n' "$package" 2>/dev/null | grep -q '^install ok installed$' ||
      printf '%s\n' "$package"
  done
}

# require PACKAGE...: installs what is missing, as root or with sudo; says what is missing otherwise.
require() {
  local missing
  if ! command -v dpkg-query >/dev/null; then
    echo "This is not a Debian system; needed are: $*" >&2
    return 0
  fi
  mapfile -t missing < <(missing_packages "$@")
  [ ${#missing[@]} -eq 0 ] && return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null || ! { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
      echo "Missing, and not allowed to install (neither root nor sudo): ${missing[*]}" >&2
      echo "Ask an administrator for: apt-get install ${missing[*]}" >&2
      exit 1
    fi
    as_root=(sudo)
  fi
  echo "Installing: ${missing[*]}"
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq)
  if ! { "${apt[@]}" update && "${apt[@]}" install -y --no-install-recommends "${missing[@]}"; } \
    >/tmp/calcut-install.$$.log 2>&1; then
    tail -n 20 /tmp/calcut-install.$$.log >&2
    echo "Could not install: ${missing[*]}" >&2
    exit 1
  fi
  rm -f /tmp/calcut-install.$$.log
}

# configure_and_build PRESET [CMake arguments]: quiet unless something goes wrong. Warnings are errors
# in CI, but not with sanitizers, which make GCC see uninitialised memory inside its own headers.
configure_and_build() {
  local preset=$1 log=$root/build/$1.log werror=OFF
  shift
  if [ -n "${CI:-}" ] && [ "$preset" != asan ] && [ "$preset" != tsan ]; then
    werror=ON
  fi
  mkdir -p "$root/build"
  if ! { cmake -S "$root" --preset "$preset" -DCALCUT_WERROR=$werror "$@" && cmake --build "$root/build/$preset"; } \
    >"$log" 2>&1; then
    grep -E -A5 'error|Error|FAILED' "$log" | head -n 60 >&2 || tail -n 40 "$log" >&2
    echo "Building the preset $preset failed; the whole log is $log" >&2
    return 1
  fi
}
