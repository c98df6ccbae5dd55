# A room is a library whose folder is its include root: who does not link a room cannot include its headers.

include(GoogleTest)

# sft_test(NAME SOURCES file... LIBS library... [TIMEOUT seconds] [LABELS label...]): a GoogleTest program whose
# cases become tests of their own.
function(sft_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBS} GTest::gmock GTest::gtest GTest::gtest_main)
  if(SFT_COVERAGE)
    # The cache has none of it: fewer, larger sources. Warnings are the other presets'; here files see each other's names.
    target_compile_options(${name} PRIVATE ${SFT_COVERAGE_OPTIONS} -w)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON)
  endif()
  # One ctest entry a program: starting a process for each of a thousand short cases costs more than the cases.
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()
