# Shared by the scripts: what is missing, and how to get it. Sourced, not run.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL=$jobs
export CTEST_PARALLEL_LEVEL=$jobs

# Debian packages: what the library needs, what the command needs too, and the tests.
library_packages=(g++ cmake ninja-build)
build_packages=(
  "${library_packages[@]}" libcli11-dev libfmt-dev nlohmann-json3-dev help2man
)
# The last three read what calcut export writes.
test_packages=(libgtest-dev python3-numpy python3-yaml python3-opencv)
# The Python module and its pictures, which calcut plot and calcut compare draw with, too.
plot_packages=(python3-dev pybind11-dev python3-numpy python3-matplotlib python3-pypdf)
# All of the Python package and its tests; python3-sklearn is optional.
python_packages=(
  "${plot_packages[@]}" python3-pandas python3-xarray python3-zarr python3-dask python3-pytest
)

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
  echo "Installing Debian packages: ${missing[*]}"
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq) output
  if ! output=$({ "${apt[@]}" update &&
    "${apt[@]}" install -y --no-install-recommends "${missing[@]}"; } 2>&1); then
    tail -n 20 <<< "$output" >&2
    echo "Could not install: ${missing[*]}" >&2
    exit 1
  fi
}

# run_workflow PRESET: configures, builds and tests, and ends with the line "N passed, N failed".
run_workflow() {
  local results=$root/build/tests-$1.xml status=0
  rm -f "$results"
  cmake --workflow --preset "$1" || status=$?
  [ -f "$results" ] && awk -F'"' '
    /^\ttests=/ { all = $2 }
    /^\tfailures=/ { bad = $2 }
    END { print all - bad " passed, " bad + 0 " failed" }' "$results"
  return $status
}

# configure_and_build PRESET [CMake arguments]: quiet unless something goes wrong. Into BUILD_DIR if
# that is set, and only the target TARGET if that is.
configure_and_build() {
  local preset=$1 build=${BUILD_DIR:-$root/build/$1}
  local log=$build.log
  shift
  mkdir -p "$build"
  if ! { cmake -S "$root" --preset "$preset" -B "$build" "$@" &&
    cmake --build "$build" ${TARGET:+--target "$TARGET"}; } > "$log" 2>&1; then
    grep -E -A5 'error|Error|FAILED' "$log" | head -n 60 >&2 || tail -n 40 "$log" >&2
    echo "Building the preset $preset failed; the whole log is $log" >&2
    return 1
  fi
}
