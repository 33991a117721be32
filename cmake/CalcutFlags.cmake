# Compiler and linker flags, each with its reason.

add_library(calcut_warnings INTERFACE)
target_compile_options(
  calcut_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow
                            $<$<BOOL:${CALCUT_WERROR}>:-Werror>)

# Results must not depend on the compiler or the machine: no fused multiply-add. The other two only
# free the vectoriser (square roots need not set errno, selects need not keep floating-point traps);
# neither changes a value.
add_library(calcut_arithmetic INTERFACE)
target_compile_options(calcut_arithmetic INTERFACE -ffp-contract=off -fno-math-errno
                                                   -fno-trapping-math)

if(CALCUT_SANITIZE)
  # Lines are all that a report names.
  add_compile_options(-fsanitize=${CALCUT_SANITIZE} -fno-omit-frame-pointer -g1)
  add_link_options(-fsanitize=${CALCUT_SANITIZE})
  if(CALCUT_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
endif()

# Checks in the library's own code that end the process where they fail, as Android builds of
# privileged processes switch them on.
set(CALCUT_TRAP "" CACHE STRING "Checks in the library that trap, as for -fsanitize= of Clang")
add_library(calcut_traps INTERFACE)
if(CALCUT_TRAP)
  target_compile_options(calcut_traps INTERFACE -fsanitize=${CALCUT_TRAP}
                                               -fsanitize-trap=${CALCUT_TRAP})
endif()

# What makes a fault in a privileged process harder to exploit. scripts/check-elf looks for each of
# them in what was built. CALCUT_HARDENED says whether the compiler knows them all.
option(CALCUT_HARDEN "Build with the compiler's protection against exploits" ON)
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
check_pie_supported()
set(CALCUT_HARDENED OFF)
if(CALCUT_HARDEN AND NOT CALCUT_SANITIZE)
  set(CALCUT_HARDENED ON)
  set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  macro(calcut_harden flag when)
    string(MAKE_C_IDENTIFIER "CALCUT_KNOWS${flag}" known)
    set(CMAKE_REQUIRED_FLAGS -Werror) # Clang takes some that it does not use, with a warning
    check_cxx_compiler_flag(${flag} ${known})
    unset(CMAKE_REQUIRED_FLAGS)
    if(${known})
      add_compile_options("$<${when}:${flag}>")
    else()
      set(CALCUT_HARDENED OFF)
    endif()
  endmacro()
  calcut_harden(-fstack-protector-strong 1)
  calcut_harden(-fstack-clash-protection 1)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    calcut_harden(-mbranch-protection=standard 1)
  else()
    calcut_harden(-fcf-protection 1)
  endif()
  # Zero on the stack instead of what was there before. Debug builds leave that to valgrind.
  calcut_harden(-ftrivial-auto-var-init=zero ${optimised})
  # Level 3 where compiler and C library know it: they warn otherwise.
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstring>\nint main() {}" CALCUT_KNOWS_FORTIFY_3)
  unset(CMAKE_REQUIRED_FLAGS)
  set(level $<IF:$<BOOL:${CALCUT_KNOWS_FORTIFY_3}>,3,2>)
  add_compile_options("$<${optimised}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${level}>")
endif()
add_link_options("LINKER:-z,relro" "LINKER:-z,now" "LINKER:-z,noexecstack")

# Optimising what sanitizers add to the headers of other projects takes minutes. What is measured and
# shipped is never built like this.
function(calcut_build_fast_under_sanitizers target)
  if(CALCUT_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# Only the documented names leave the library, with a version of their own; calls inside it never
# leave it, so that nobody's function of the same name can take their place (data can be replaced:
# crc32table is documented to be). Text stays shareable, and segments are aligned for 16 KiB pages.
function(calcut_harden_shared_library target)
  target_link_options(
    ${target}
    PRIVATE
    "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/calcut.map"
    "LINKER:-Bsymbolic-functions"
    "LINKER:-z,text"
    "LINKER:-z,max-page-size=16384")
  if(NOT CALCUT_SANITIZE)
    # Of a C++ runtime that is linked in, only what is used.
    target_link_options(${target} PRIVATE "LINKER:--no-undefined" "LINKER:--as-needed"
                                          "LINKER:--gc-sections")
  endif()
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS
                                                ${PROJECT_SOURCE_DIR}/cmake/calcut.map)
endfunction()
