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

# Optimising what sanitizers add to the headers of other projects takes minutes. What is measured and
# shipped is never built like this.
function(calcut_build_fast_under_sanitizers target)
  if(CALCUT_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# Only the documented names leave the library; text stays shareable, the GOT is read-only after
# load, the stack is not executable, and segments are aligned for 16 KiB pages.
function(calcut_harden_shared_library target)
  target_link_options(
    ${target}
    PRIVATE
    "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/calcut.map"
    "LINKER:-z,relro"
    "LINKER:-z,now"
    "LINKER:-z,noexecstack"
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
