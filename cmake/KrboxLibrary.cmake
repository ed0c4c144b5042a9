# krbox_add_library(<name> EXPORT_HEADER <include-relative path> SOURCES ...
#                   [PUBLIC ...] [PRIVATE ...])
#
# Declares one shared library of the project: hidden visibility with a generated
# export macro (<NAME>_EXPORT), public headers under include/ when the directory has one,
# an alias krbox::<name>, and install rules that add it to the exported package.
function(krbox_add_library name)
  cmake_parse_arguments(ARG "" "EXPORT_HEADER" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES})
  add_library(krbox::${name} ALIAS ${name})
  # Installed libraries find each other beside themselves, wherever the prefix is.
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} AUTOMOC ON
    INSTALL_RPATH "$ORIGIN")
  string(TOUPPER ${name} upper)
  generate_export_header(${name} BASE_NAME ${name} EXPORT_MACRO_NAME ${upper}_EXPORT
    EXPORT_FILE_NAME ${CMAKE_CURRENT_BINARY_DIR}/generated/${ARG_EXPORT_HEADER})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_BINARY_DIR}/generated>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/include)
    target_include_directories(${name} PUBLIC
      $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>)
    install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/include/
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h")
  endif()
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
  # The package components: the shared objects alone in lib, what a build against them needs
  # (headers, the unversioned link name) in dev.
  install(TARGETS ${name} EXPORT krboxlibraryTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT lib)
  install(DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/generated/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h")
endfunction()
