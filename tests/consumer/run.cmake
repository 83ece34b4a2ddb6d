# Installs the build into a staged folder and builds and runs an outside consumer of every component
# against it, once through the CMake package and once through pkg-config; then asks for a component
# that there is not, and, where SQLITE names its program, has that ask a model.
# Needs BUILD, SOURCE, STAGE, GENERATOR, CXX, LIBDIR, COMPONENTS (separated by commas).

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGV}\n${out}")
  endif()
endfunction()

file(REMOVE_RECURSE ${STAGE})
file(MAKE_DIRECTORY ${STAGE})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${STAGE}/usr)
set(ENV{PKG_CONFIG_PATH} ${STAGE}/usr/${LIBDIR}/pkgconfig)

function(configure component)
  execute_process(COMMAND ${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE} -B ${STAGE}/build-${component}
    -DCOMPONENT=${component} -DCMAKE_PREFIX_PATH=${STAGE}/usr -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_CXX_FLAGS=${FLAGS} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  set(result ${result} PARENT_SCOPE)
  set(out "${out}" PARENT_SCOPE)
endfunction()

function(consume component source)
  configure("${component}")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "find_package(QX_db COMPONENTS ${component}): ${out}")
  endif()
  run(${CMAKE_COMMAND} --build ${STAGE}/build-${component})
  run(${CMAKE_COMMAND} -E chdir ${STAGE} ${STAGE}/build-${component}/consumer)

  execute_process(COMMAND pkg-config --cflags --libs ${ARGN} OUTPUT_VARIABLE flags
                  OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "pkg-config does not find ${ARGN}")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(${CXX} ${FLAGS} -fPIC ${SOURCE}/${source}.cpp -o ${STAGE}/consumer_${source} ${flags}
      -Wl,-rpath,${STAGE}/usr/${LIBDIR})
  run(${CMAKE_COMMAND} -E chdir ${STAGE} ${STAGE}/consumer_${source})
endfunction()

consume("" core qx_db)
string(REPLACE "," ";" components "${COMPONENTS}")
foreach(component IN LISTS components)
  set(modules qx_db-${component})
  if(component STREQUAL sql)
    list(APPEND modules sqlite3)
  endif()
  consume(${component} ${component} ${modules})
endforeach()

configure(teapot)
if(result EQUAL 0 OR NOT out MATCHES "lacks:[ \n]+teapot[ \n]+\\(no")
  message(FATAL_ERROR "a component that is none was not told: ${out}")
endif()

if(SQLITE)
  set(model ${STAGE}/bracket.qxm)
  run(${STAGE}/usr/bin/qxdb import ${SOURCE}/../../examples/bracket.msh ${model})
  execute_process(COMMAND ${SQLITE} -cmd ".load ${STAGE}/usr/${LIBDIR}/qxdb/qxdb.so"
                          -cmd "SELECT qx_open('${model}')" :memory: "SELECT count(*) FROM element"
                  OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT out MATCHES "^\n?5849\n$")
    message(FATAL_ERROR "the loadable extension does not answer: ${out}")
  endif()
endif()
