# Components: parts of the project that need a heavy dependency. Each is a switch, and what is left
# out is told.

set_property(GLOBAL PROPERTY QX_COMPONENTS "")

# qx_component(QX_NAME what dependency packages [ON]): declares the switch, off unless it is set or
# on by default.
function(qx_component switch what dependency packages)
  option(${switch} "Build ${what} (${dependency})" ${ARGN})
  set_property(GLOBAL APPEND PROPERTY QX_COMPONENTS ${switch})
  set_property(GLOBAL PROPERTY ${switch}_WHAT "${what}")
  set_property(GLOBAL PROPERTY ${switch}_DEPENDENCY "${dependency}")
  set_property(GLOBAL PROPERTY ${switch}_PACKAGES "${packages}")
endfunction()

# qx_require_component(QX_NAME condition...): stops unless every condition variable is true.
function(qx_require_component switch)
  foreach(condition IN LISTS ARGN)
    if(NOT ${condition})
      get_property(dependency GLOBAL PROPERTY ${switch}_DEPENDENCY)
      get_property(packages GLOBAL PROPERTY ${switch}_PACKAGES)
      message(FATAL_ERROR "${switch} is ON and ${dependency} is not installed (${condition}): "
        "install ${packages}, or configure with -D${switch}=OFF")
    endif()
  endforeach()
endfunction()

# One line a component, at the end of the configuring.
function(qx_report_components)
  get_property(switches GLOBAL PROPERTY QX_COMPONENTS)
  foreach(switch IN LISTS switches)
    get_property(what GLOBAL PROPERTY ${switch}_WHAT)
    if(${switch})
      message(STATUS "with ${what} (${switch})")
    else()
      message(STATUS "without ${what} (${switch}=OFF)")
    endif()
  endforeach()
endfunction()

# qx_loaded_file(<variable> <library>): the file name, with its version, of a library of which only
# the headers are used in building: it is loaded when a file is opened that needs it.
function(qx_loaded_file variable library)
  get_filename_component(file "${library}" REALPATH)
  string(REGEX REPLACE ".*/([^/]*\\.so\\.[0-9]+).*" "\\1" file "${file}")
  set(${variable} "${file}" PARENT_SCOPE)
endfunction()
