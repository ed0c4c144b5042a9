# Debian packages made by `cpack -G DEB` (scripts/package), one per install component:
#
#   libkrboxlibrary<major>   lib     the shared libraries
#   libkrboxlibrary-dev      dev     headers, CMake package, pkg-config file, link names
#   krbox                    krbox   the command-line tool, its manual page and completion
#   python3-krboxlibrary     python  the Python module
#
# dpkg-shlibdeps computes what each needs from the system; the packages' needs of each other
# are stated here, at this exact version, since they are built together.
set(KRBOX_PACKAGE_RELEASE 1 CACHE STRING "Debian revision of the packages")
set(KRBOX_PACKAGE_MAINTAINER "krboxlibrary maintainers <maintainers@krboxlibrary.example>"
    CACHE STRING "Maintainer field of the packages")

set(CPACK_PACKAGE_NAME krboxlibrary)
set(CPACK_PACKAGE_VENDOR "krboxlibrary")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "box libraries of a robot behavior-authoring tool")
set(CPACK_PACKAGE_CONTACT "${KRBOX_PACKAGE_MAINTAINER}")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${KRBOX_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${KRBOX_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_STRIP_FILES ON)

set(krbox_deb_version "${PROJECT_VERSION}-${KRBOX_PACKAGE_RELEASE}")
set(krbox_lib_package libkrboxlibrary${PROJECT_VERSION_MAJOR})
# dpkg-shlibdeps finds this project's own libraries in the build tree, and leaves them to
# the dependencies stated below. A shlibs file in the package of the libraries makes what
# others build against them depend on it.
set(krbox_shlibs "")
foreach(library zu krserial zuproject krboxlibrary krboxmodels)
  get_target_property(directory ${library} BINARY_DIR)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${directory})
  string(APPEND krbox_shlibs
    "lib${library} ${PROJECT_VERSION_MAJOR} ${krbox_lib_package} (>= ${krbox_deb_version})\n")
endforeach()
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs "${krbox_shlibs}")

if(KRBOX_QT_MAJOR EQUAL 5)
  set(krbox_qt_dev qtbase5-dev)
else()
  set(krbox_qt_dev qt6-base-dev)
endif()

set(CPACK_COMPONENTS_ALL lib dev)
if(TARGET krbox)
  list(APPEND CPACK_COMPONENTS_ALL krbox)
endif()

set(CPACK_DEBIAN_LIB_PACKAGE_NAME ${krbox_lib_package})
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/shlibs)
set(CPACK_DEBIAN_LIB_DESCRIPTION "box libraries of a robot behavior-authoring tool
 Opens, creates, edits and saves box libraries (trees of folders and boxes stored as a
 directory tree or a zip archive) and exports behavior boxes as projects.
 .
 This package holds the shared libraries.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libkrboxlibrary-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# The public headers include Qt Core's and Boost's.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "${krbox_lib_package} (= ${krbox_deb_version}), ${krbox_qt_dev}, libboost-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION "box libraries of a robot behavior-authoring tool (development)
 Headers, CMake package (find_package(krboxlibrary)) and pkg-config file (krboxlibrary)
 for building against the box library libraries.")

set(CPACK_DEBIAN_KRBOX_PACKAGE_NAME krbox)
set(CPACK_DEBIAN_KRBOX_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_KRBOX_PACKAGE_DEPENDS "${krbox_lib_package} (= ${krbox_deb_version})")
set(CPACK_DEBIAN_KRBOX_DESCRIPTION "command-line tool for box libraries of a robot behavior-authoring tool
 krbox shows, searches, edits, packs, checks and exports box libraries, and merges their
 folder listings as a git merge driver. With a manual page and bash completion.")

if(KRBOX_BUILD_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-krboxlibrary)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  # An extension module is built for one Python version.
  math(EXPR krbox_python_next "${Python3_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "${krbox_lib_package} (= ${krbox_deb_version}), \
python3 (>= ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}), \
python3 (<< ${Python3_VERSION_MAJOR}.${krbox_python_next})")
  set(CPACK_DEBIAN_PYTHON_DESCRIPTION "Python module for box libraries of a robot behavior-authoring tool
 The module krboxlibrary opens, walks, searches, edits, saves and exports box libraries
 from Python, with the same edits and messages as the krbox tool.")
endif()

# Every package carries the licence where Debian looks for it.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
endforeach()

include(CPack)
