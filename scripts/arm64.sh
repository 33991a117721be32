# Shared by the scripts that look at builds for 64-bit Arm by several compilers. Sourced after common.sh.

# build_for_arm64 NAME COMPILER TARGET [CMake arguments]: into build/count/NAME, by gcc-12, clang-14 or
# clang-19.
build_for_arm64() {
  local name=$1 compiler=$2 target=$3
  shift 3
  case $compiler in
    clang-*) set -- -DCMAKE_C_COMPILER="$compiler" \
      -DCMAKE_CXX_COMPILER="clang++-${compiler#clang-}" "$@" ;;
  esac
  BUILD_DIR=build/count/$name TARGET=$target configure_and_build arm64 -DCALCUT_BUILD_TESTS=OFF \
    -DCALCUT_BUILD_TOOLS=OFF -DCALCUT_BUILD_BENCHMARKS=ON "$@"
}
