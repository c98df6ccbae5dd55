# The naive state machine, and what runs a history through it and the real one: for the tests and for the fuzz target.
if(TARGET naive_state_machine)
  return()
endif()
set(support ${CMAKE_CURRENT_LIST_DIR})
add_library(naive_state_machine STATIC
  ${support}/NaiveHashSeed.cpp
  ${support}/NaiveHistory.cpp
  ${support}/NaiveComparison.cpp
  ${support}/NaiveSideBySide.cpp
  ${support}/NaiveStateMachine.cpp
  ${support}/NaiveStatements.cpp
  ${support}/NaiveSubject.cpp)
target_include_directories(naive_state_machine PUBLIC ${support})
target_link_libraries(naive_state_machine PUBLIC sft_plugin flow_records local_counters runtime spdlog::spdlog)
