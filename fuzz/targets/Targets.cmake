# sft_fuzz_target(NAME SOURCE CORPUS libraries...): in the fuzz build a libFuzzer program fuzz_NAME, in every other a
# test that gives the committed corpus, and every input that once failed, to the same target.
function(sft_fuzz_target name source corpus)
  set(fuzz ${CMAKE_SOURCE_DIR}/fuzz)
  if(SFT_FUZZ)
    add_executable(fuzz_${name} ${fuzz}/targets/${source})
    target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(fuzz_${name} PRIVATE ${ARGN})
  else()
    add_executable(replay_${name} ${fuzz}/targets/${source} ${fuzz}/targets/ReplayCorpus.cpp)
    target_link_libraries(replay_${name} PRIVATE ${ARGN})
    add_test(NAME replay_${name} COMMAND replay_${name} ${fuzz}/corpus/${corpus} ${fuzz}/regressions/${corpus})
  endif()
endfunction()

sft_fuzz_target(parsed_packet ParsedPacketTarget.cpp packet runtime)
sft_fuzz_target(frame_offload FrameOffloadTarget.cpp frame runtime)
sft_fuzz_target(capture_reader CaptureReaderTarget.cpp capture runtime)

include(${CMAKE_SOURCE_DIR}/tests/support/NaiveStateMachine.cmake)
sft_fuzz_target(state_machine StateMachineTarget.cpp state_machine naive_state_machine)
sft_fuzz_target(sflow_datagram SflowDatagramTarget.cpp datagram tracker)
