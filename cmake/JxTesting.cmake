# One GoogleTest executable per suite, registered with CTest. Every suite runs
# with its own fresh data root (the shared test main makes one).
find_package(GTest REQUIRED)
find_package(Threads REQUIRED)

# Where the kernel cannot run this build's programs, CTest runs every test
# program under CMAKE_CROSSCOMPILING_EMULATOR. Tests start the programs they
# run themselves under JX_TEST_EMULATOR: the same command, its words separated
# by spaces (tests/support/child_program.hpp, and jx_add_script_test below).
list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " JX_TEST_EMULATOR)

# jx_add_test_suite(NAME SOURCES src... [LIBS lib...] [LABELS label...])
function(jx_add_test_suite name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE jx_test_main ${ARG_LIBS} GTest::gtest Threads::Threads)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT 600)
  if(ARG_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
  endif()
endfunction()

# jx_add_script_test(NAME SCRIPT [ARGS arg...] [TIMEOUT seconds])
# A bash script as a test. It starts this build's programs as
#   ${JX_TEST_EMULATOR:-} "$program" ...
# (unquoted: empty where they run directly).
function(jx_add_script_test name script)
  cmake_parse_arguments(ARG "" "TIMEOUT" "ARGS" ${ARGN})
  add_test(NAME ${name} COMMAND bash ${script} ${ARG_ARGS})
  set_tests_properties(${name} PROPERTIES ENVIRONMENT "JX_TEST_EMULATOR=${JX_TEST_EMULATOR}")
  if(ARG_TIMEOUT)
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT})
  endif()
endfunction()
