# The installed package: a component is a library with its headers, a CMake target QX_db::<name> and
# a pkg-config file. find_package(QX_db COMPONENTS exchange host) loads those it names.

include(CMakePackageConfigHelpers)
set(QX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QX_db)
set_property(GLOBAL PROPERTY QX_PC_LINES "")

# Writes <name>.pc when installing: the prefix is known only then.
function(qx_install_pc name description requires libs cflags)
  install(CODE "
    set(QX_PC_DESCRIPTION \"${description}\")
    set(QX_PC_REQUIRES \"${requires}\")
    set(QX_PC_LIBS \"${libs}\")
    set(QX_PC_CFLAGS \"${cflags}\")
    set(QX_PC_NAME \"${name}\")
    set(PROJECT_VERSION \"${PROJECT_VERSION}\")
    get_filename_component(prefix \"\${CMAKE_INSTALL_PREFIX}\" ABSOLUTE)
    set(CMAKE_INSTALL_FULL_LIBDIR \"\${prefix}/${CMAKE_INSTALL_LIBDIR}\")
    set(CMAKE_INSTALL_FULL_INCLUDEDIR \"\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}\")
    configure_file(${PROJECT_SOURCE_DIR}/cmake/component.pc.in
      \"\$ENV{DESTDIR}\${prefix}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/${name}.pc\" @ONLY)
  ")
endfunction()

# qx_add_component(<name> SOURCES ... HEADERS ... [DEPENDS component...] [REQUIRES pc-module...]):
# the shared library qx_<name>, installed as QX_db::<name>. HEADERS are what an application may
# include, relative to the source tree; below include/ of the folder stands the umbrella header
# qx_db/<name>.h. Other headers stay private. These libraries are small and public as a whole, so
# their symbols are visible without a mark on each class.
function(qx_add_component name)
  cmake_parse_arguments(ARG "" "DESCRIPTION" "SOURCES;HEADERS;DEPENDS;REQUIRES" ${ARGN})
  set(target qx_${name})
  add_library(${target} SHARED ${ARG_SOURCES})
  add_library(QX_db::${name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name}
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_VISIBILITY_PRESET default VISIBILITY_INLINES_HIDDEN OFF WINDOWS_EXPORT_ALL_SYMBOLS ON)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/qx_db>)
  target_link_libraries(${target} PUBLIC qx_db PRIVATE $<BUILD_INTERFACE:qx_options>)
  if(UNIX AND NOT APPLE AND NOT QX_SANITIZE)  # whose runtime only programs have
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()
  set(modules qx_db)
  foreach(component IN LISTS ARG_DEPENDS)
    target_link_libraries(${target} PUBLIC qx_${component})
    list(APPEND modules qx_db-${component})
  endforeach()
  list(APPEND modules ${ARG_REQUIRES})
  list(JOIN modules " " modules)

  install(TARGETS ${target} EXPORT QX_db-${name}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(EXPORT QX_db-${name} FILE QX_db-${name}.cmake NAMESPACE QX_db::
          DESTINATION ${QX_PACKAGE_DIR})
  foreach(header IN LISTS ARG_HEADERS)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/${header}
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qx_db/${folder})
  endforeach()
  install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  qx_install_pc(qx_db-${name} "${ARG_DESCRIPTION}" "${modules}" "-lqx_${name}"
                "-I\\\${includedir}/qx_db")
  set_property(GLOBAL APPEND PROPERTY QX_INSTALLED_COMPONENTS ${name})
  # What the package configuration loads before a component: other components, and packages that
  # its headers name.
  set_property(GLOBAL PROPERTY QX_${name}_DEPENDS "${ARG_DEPENDS}")
endfunction()

# Writes and installs the package configuration; after all components.
function(qx_install_package)
  get_property(components GLOBAL PROPERTY QX_INSTALLED_COMPONENTS)
  set(QX_COMPONENT_DEPENDS "")
  foreach(name IN LISTS components)
    get_property(depends GLOBAL PROPERTY QX_${name}_DEPENDS)
    string(APPEND QX_COMPONENT_DEPENDS "set(QX_db_${name}_DEPENDS ${depends})\n")
  endforeach()
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QX_dbConfig.cmake.in
    ${CMAKE_BINARY_DIR}/QX_dbConfig.cmake INSTALL_DESTINATION ${QX_PACKAGE_DIR})
  write_basic_package_version_file(${CMAKE_BINARY_DIR}/QX_dbConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
  install(FILES ${CMAKE_BINARY_DIR}/QX_dbConfig.cmake
    ${CMAKE_BINARY_DIR}/QX_dbConfigVersion.cmake DESTINATION ${QX_PACKAGE_DIR})
endfunction()
