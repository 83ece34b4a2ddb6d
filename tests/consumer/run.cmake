# Installs the build into a staged folder and builds an outside consumer against it, once through
# the CMake package and once through pkg-config.
# Needs BUILD, SOURCE, STAGE, CXX, LIBDIR.

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGV}\n${out}")
  endif()
endfunction()

file(REMOVE_RECURSE ${STAGE})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${STAGE}/usr)
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${STAGE}/build -DCMAKE_PREFIX_PATH=${STAGE}/usr
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${FLAGS})
run(${CMAKE_COMMAND} --build ${STAGE}/build)
run(${STAGE}/build/consumer)

set(ENV{PKG_CONFIG_PATH} ${STAGE}/usr/${LIBDIR}/pkgconfig)
execute_process(COMMAND pkg-config --cflags --libs qx_db OUTPUT_VARIABLE flags
                OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "pkg-config does not find qx_db")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} ${FLAGS} ${SOURCE}/main.cpp -o ${STAGE}/consumer ${flags}
    -Wl,-rpath,${STAGE}/usr/${LIBDIR})
run(${STAGE}/consumer)
