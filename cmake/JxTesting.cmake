# One GoogleTest executable per suite, registered with CTest. Every suite runs
# with its own fresh data root (the shared test main makes one).
find_package(GTest REQUIRED)
find_package(Threads REQUIRED)

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
