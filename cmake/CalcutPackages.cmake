# Debian packages: cpack in a build that was configured with -DCMAKE_INSTALL_PREFIX=/usr
# (scripts/package does both). One package for each component, named and placed by Debian's rules.
find_program(CALCUT_DPKG_DEB dpkg-deb)
if(NOT CALCUT_DPKG_DEB OR NOT CALCUT_BUILD_TOOLS OR CMAKE_CROSSCOMPILING)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME calcut)
set(CPACK_PACKAGE_CONTACT "The calcut maintainers <maintainers@calcut.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL command library development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(library libcalcut${PROJECT_VERSION_MAJOR})

# calcut_debian_package(COMPONENT NAME SECTION DESCRIPTION [DEPENDS])
function(calcut_debian_package component name section description)
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_COMPONENT_${COMPONENT}_DESCRIPTION "${description}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS "${ARGN}" PARENT_SCOPE)
  foreach(file copyright changelog.gz)
    install(FILES ${PROJECT_BINARY_DIR}/debian/${file} DESTINATION share/doc/${name}
            COMPONENT ${component} EXCLUDE_FROM_ALL)
  endforeach()
endfunction()

calcut_debian_package(library ${library} libs "This package has the shared library.")
calcut_debian_package(
  development libcalcut-dev libdevel
  "This package has headers, CMake package and pkg-config file."
  "${library} (= ${PROJECT_VERSION}), libc6-dev")
calcut_debian_package(
  command calcut utils "This package has the command, which also inspects, compares and exports dumps.")
set(CPACK_DEBIAN_COMMAND_PACKAGE_RECOMMENDS "python3-calcut (= ${PROJECT_VERSION}), python3-matplotlib")
if(TARGET calcut_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
  # Debian's package of a compiled module is for one minor version of Python.
  execute_process(
    COMMAND ${CALCUT_PYTHON} -c
            "import sys; a, b = sys.version_info[:2]; print(f'python3 (>= {a}.{b}), python3 (<< {a}.{b + 1})')"
    OUTPUT_VARIABLE python3 OUTPUT_STRIP_TRAILING_WHITESPACE)
  calcut_debian_package(
    python python3-calcut python
    "This package has the Python module: arrays, pictures and fleets."
    "${python3}, python3-numpy")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "python3-matplotlib, python3-pandas")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS
      "python3-xarray, python3-zarr, python3-dask, python3-distributed, python3-sklearn")
endif()

# The packages are native ones: their changelog is the project's, dated by the last commit.
execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%aD OUTPUT_VARIABLE date
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT date)
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
endif()
file(WRITE ${PROJECT_BINARY_DIR}/debian/changelog
     "calcut (${PROJECT_VERSION}) unstable; urgency=medium\n\n"
     "  * Release ${PROJECT_VERSION}.\n\n -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
execute_process(COMMAND gzip -9nkf ${PROJECT_BINARY_DIR}/debian/changelog)
file(WRITE ${PROJECT_BINARY_DIR}/debian/copyright
     "This is calcut, packaged from its own source.\n\nCopyright: 2026 The calcut authors\n")

# What programs that link the library depend on.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

# Loaders learn of a new library through a trigger.
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/triggers)

set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/CompressManPages.cmake)
include(CPack)
