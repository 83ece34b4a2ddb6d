# Reads each file of a corpus once and holds that this reaches edges enough of the library: a reader
# that refuses what it took before, or a build that the fuzzer does not see, shows here.
execute_process(
  COMMAND ${FUZZ} -runs=0 -seed=1 -max_len=${LENGTH} -timeout=60 -rss_limit_mb=4096 ${CORPUS}
  RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${said}\nFuzz target failed (${result}); it names the input above.")
endif()
if(NOT said MATCHES "DONE +cov: ([0-9]+)")
  message(FATAL_ERROR "${said}\nThe target tells no edges: it read nothing of ${CORPUS}.")
endif()
message(STATUS "edges ${CMAKE_MATCH_1}, at least ${EDGES}")
if(CMAKE_MATCH_1 LESS EDGES)
  message(FATAL_ERROR "The corpus reaches ${CMAKE_MATCH_1} edges, ${EDGES} are asked for "
    "(fuzz/targets.txt). What made it reach fewer? Where that is meant, make the seeds again "
    "(fuzz/make_corpus.cpp) or correct the table.")
endif()
