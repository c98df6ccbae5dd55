set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

find_program(CCACHE ccache)
if(CCACHE)
  # Objects are shared between build folders: paths below the source tree do not take part in the hash.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
                                  ${CCACHE})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -fno-semantic-interposition)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wno-sign-conversion)  # part of -Wconversion for Clang only: both compilers hold one rule
endif()
if(CMAKE_UNITY_BUILD)
  # Some sources are compiled as one, in half the time: there they see each other's names. Warnings are the other presets'.
  add_compile_options(-w)
endif()
add_link_options(-Wl,--as-needed)

set(SFT_HARDENED ${SFT_HARDEN_DEBUG})
if(SFT_HARDEN AND CMAKE_BUILD_TYPE STREQUAL "Release")
  set(SFT_HARDENED ON)
endif()
if(SFT_HARDENED)
  # What is installed reads packets and datagrams from anybody.
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
  add_compile_definitions(_FORTIFY_SOURCE=2)
  add_link_options(-Wl,-z,relro,-z,now)
endif()

# Asio decides by what was included before it whether it takes memory from std::aligned_alloc or from operator new. One program must
# not do both: what one file takes another one may give back.
add_compile_definitions(ASIO_DISABLE_STD_ALIGNED_ALLOC)

if(SFT_SANITIZE)
  add_compile_options(-fsanitize=${SFT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SFT_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)  # instrumented variants look uninitialised to GCC 12
  endif()
  if(SFT_SANITIZE MATCHES "thread")
    # The thread sanitizer does not follow fences, and GCC refuses them there. Asio's order nothing here: an event loop has
    # one thread.
    add_compile_definitions(ASIO_DISABLE_FENCED_BLOCK)
  endif()
endif()
if(SFT_COVERAGE)
  # For the rooms that are measured and their tests (scripts/coverage): all other objects are those of the dev preset, out of the
  # compiler cache. Threads count at once: without atomic counts some come out negative.
  set(SFT_COVERAGE_OPTIONS -O0 --coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
