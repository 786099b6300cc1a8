# One library, one test program, one fuzz target or one benchmark a folder: the sources are whatever the folder holds.

# crv_library(<folder> [LINK libraries...]): static library crv_<folder> of every .cpp below the current folder.
function(crv_library name)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS *.cpp)
  add_library(crv_${name} STATIC ${sources})
  target_include_directories(crv_${name} PUBLIC ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/include)
  target_link_libraries(crv_${name} PUBLIC ${ARG_LINK} PRIVATE crv_options)
endfunction()

# crv_program(<name> LINK libraries...): program of the .cpp files of the current folder.
function(crv_program name)
  cmake_parse_arguments(ARG "" "" "LINK;SOURCES" ${ARGN})
  if(NOT ARG_SOURCES)
    file(GLOB ARG_SOURCES CONFIGURE_DEPENDS *.cpp)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} crv_options)
  target_compile_definitions(${name} PRIVATE CRV_VERSION="${PROJECT_VERSION}")
endfunction()

# crv_test(<folder> LINK libraries... [TIMEOUT seconds] [CASES]): GoogleTest program test_<folder> of every .cpp in the
# current folder. One ctest test runs all its cases, so that they share costly fixtures; with CASES each case is a test,
# for cases that mostly wait. Cases of suites named Slow* are always tests of their own, carry the label "slow" and start
# first, so that a run does not end waiting for one of them.
function(crv_test name)
  cmake_parse_arguments(ARG "CASES" "TIMEOUT" "LINK" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  file(GLOB sources CONFIGURE_DEPENDS *.cpp)
  add_executable(test_${name} ${sources})
  target_include_directories(test_${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  target_compile_definitions(test_${name} PRIVATE CRV_TEST_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data"
    CRV_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}" CRV_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
  target_link_libraries(test_${name} PRIVATE ${ARG_LINK} crv_test_support GTest::gmock_main crv_options)
  if(NOT ARG_CASES)
    add_test(NAME ${name} COMMAND test_${name} --gtest_brief=1 --gtest_filter=-Slow*)
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  else()
    gtest_discover_tests(test_${name} TEST_FILTER "-Slow*" DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  endif()
  gtest_discover_tests(test_${name} TEST_FILTER "Slow*" DISCOVERY_MODE PRE_TEST
    TEST_LIST test_${name}_SLOW PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS slow COST 60)
endfunction()

# crv_fuzz(<name> LINK libraries...): libFuzzer target fuzz_<name> of <name>.cpp, seeds in corpus/<name>.
function(crv_fuzz name)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  add_executable(fuzz_${name} ${name}.cpp)
  target_link_libraries(fuzz_${name} PRIVATE ${ARG_LINK} crv_options)
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  add_dependencies(fuzzers fuzz_${name})
endfunction()

# crv_bench(<name> LINK libraries...): Google Benchmark program bench_<name> of <name>.cpp.
function(crv_bench name)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  add_executable(bench_${name} ${name}.cpp)
  target_link_libraries(bench_${name} PRIVATE ${ARG_LINK} benchmark::benchmark crv_options)
endfunction()
