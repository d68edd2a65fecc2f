# The Debian package: `cpack -G DEB` in a build folder configured with CMAKE_INSTALL_PREFIX=/usr
# (GNUInstallDirs then installs the libraries in Debian's multiarch folder).
set(CPACK_PACKAGE_NAME korvaneapi)
set(CPACK_PACKAGE_VENDOR "The KorvaneAPI developers")
set(CPACK_PACKAGE_CONTACT "The KorvaneAPI developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Client library of the Korvane image-analysis suite")
set(CPACK_PACKAGE_DESCRIPTION
  "KorvaneAPI drives the object stores and services of the Korvane image-analysis suite: the \
library, the stand-alone suite it runs over, their headers, CMake and pkg-config files, the \
korvane command-line tool and, when built with it, the Python module korvane.")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
# The run-time libraries it needs, from the libraries' and the tool's own links; the headers'
# one outside need, Boost's path class in the settings header, as a package of headers.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libboost-filesystem-dev")
# The Python module, when the package carries it: the interpreter version it was built for (its
# file name carries that version's ABI) and NumPy.
if(KORVANE_BUILD_PYTHON)
  math(EXPR KORVANE_PYTHON_NEXT_MINOR "${Python3_VERSION_MINOR} + 1")
  string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS
    ", python3 (>= ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}~)"
    ", python3 (<< ${Python3_VERSION_MAJOR}.${KORVANE_PYTHON_NEXT_MINOR}), python3-numpy")
endif()
# A shlibs file, and the trigger that runs ldconfig after installation and removal.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
include(CPack)
