# mretriever_tests(NAME SOURCES ... LIBRARIES ... [LABELS ...] [PROPERTIES ...])
# One executable; every test in it runs in a process of its own.
include(GoogleTest)
if(MRETRIEVER_TESTS)
  find_package(GTest REQUIRED)
endif()
# A failure ends the process whatever other threads do, so none is joined then:
# that is no leak of threads.
set(MRETRIEVER_TSAN_OPTIONS
    "TSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/tsan.supp:report_thread_leaks=0")
function(mretriever_tests name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES;PROPERTIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} mretriever_test_support GTest::gmock
                        GTest::gtest mretriever_warnings)
  target_compile_definitions(${name} PRIVATE
    MRETRIEVER_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}"
    MRETRIEVER_SOURCE_DIR="${CMAKE_SOURCE_DIR}"
    MRETRIEVER_BINARY_DIR="${CMAKE_BINARY_DIR}")
  gtest_discover_tests(${name} TEST_PREFIX ${name}. DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                       PROPERTIES ENVIRONMENT "${MRETRIEVER_TSAN_OPTIONS}"
                       ${arg_PROPERTIES})
endfunction()
