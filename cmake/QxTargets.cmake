# What every target of this project has in common: warnings, sanitizers, coverage.

find_program(QX_LLD NAMES ld.lld)

add_library(qx_options INTERFACE)
target_compile_options(qx_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual
  -Wformat=2 -Wundef $<$<BOOL:${QX_WERROR}>:-Werror>
  # GCC 12 sees overlaps in std::string concatenation and uninitialised alternatives in
  # std::variant where there are none (GCC bugs 105651 and 105562).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict -Wno-maybe-uninitialized>)
if(QX_SANITIZE)
  target_compile_options(qx_options INTERFACE -fsanitize=${QX_SANITIZE} -fno-sanitize-recover=all
                                              -fno-omit-frame-pointer)
  target_link_options(qx_options INTERFACE -fsanitize=${QX_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    target_compile_options(qx_options INTERFACE
      -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/sanitize-ignore.txt)
  endif()
endif()
if(QX_FUZZ)
  # What a fuzzer sees of a library: each edge that an input takes, and what was compared there.
  # Without a fuzzer the address sanitizer takes the calls and does nothing.
  add_library(qx_fuzzed INTERFACE)
  target_compile_options(qx_fuzzed INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(QX_COVERAGE)
  target_compile_options(qx_options INTERFACE --coverage)
  target_link_options(qx_options INTERFACE --coverage)
endif()
if(QX_LLD)
  target_link_options(qx_options INTERFACE -fuse-ld=lld)
endif()

# qx_fuzz_sees(<target>): the fuzz targets follow what this one does.
function(qx_fuzz_sees target)
  if(QX_FUZZ)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:qx_fuzzed>)
  endif()
endfunction()

# qx_precompile(<target> <header>...): what nearly every source of the target includes is compiled
# once for all of them. A source names what it uses all the same: the thread sanitizer's build has
# no such headers.
function(qx_precompile target)
  target_precompile_headers(${target} PRIVATE <algorithm> <array> <cmath> <filesystem> <functional>
    <map> <memory> <span> <string> <unordered_map> <utility> <vector> ${ARGN})
  # GCC 12 forgets there that the standard library's headers are none of ours, and tells of copies
  # in them whose length it cannot know. Clang's build looks at the same sources.
  target_compile_options(${target} PRIVATE
    $<$<CXX_COMPILER_ID:GNU>:-Wno-stringop-overflow -Wno-stringop-overread -Wno-array-bounds>)
endfunction()

# qx_join_sources(): with QX_JOIN_SOURCES the sources of a folder are compiled together, up to eight
# at a time. What is unnamed in one is then seen in its neighbours: a name that two of a folder give
# to different things is an error there. Declarations of formats and commands, which all have the same
# names, stay alone.
function(qx_join_sources)
  if(NOT QX_JOIN_SOURCES)
    return()
  endif()
  set(folders "${PROJECT_SOURCE_DIR}")
  while(folders)
    list(POP_FRONT folders folder)
    get_property(below DIRECTORY "${folder}" PROPERTY SUBDIRECTORIES)
    list(APPEND folders ${below})
    get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
      qx_join_sources_of(${target} "${folder}")
    endforeach()
  endwhile()
endfunction()

function(qx_join_sources_of target folder)
  get_target_property(type ${target} TYPE)
  get_target_property(moc ${target} AUTOMOC)
  if(NOT type MATCHES "^(EXECUTABLE|.*_LIBRARY)$" OR type STREQUAL INTERFACE_LIBRARY OR moc)
    return()
  endif()
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "[.]cpp$")
  list(FILTER sources EXCLUDE REGEX "_format[.]cpp$|(^|/)cmd_")
  foreach(source IN LISTS sources)
    get_filename_component(source "${source}" ABSOLUTE BASE_DIR "${folder}")
    get_filename_component(group "${source}" DIRECTORY)
    file(RELATIVE_PATH group "${PROJECT_SOURCE_DIR}" "${group}")
    string(MAKE_C_IDENTIFIER "${group}" group)
    math(EXPR count_${group} "${count_${group}} + 0")
    math(EXPR part "${count_${group}} / 8")
    math(EXPR count_${group} "${count_${group}} + 1")
    set_source_files_properties("${source}" TARGET_DIRECTORY ${target}
                                PROPERTIES UNITY_GROUP "${group}_${part}")
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  # GCC takes the joined sources for headers, where a type of an unnamed namespace were a mistake.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endfunction()
