# SPDX-License-Identifier: Apache-2.0
# How the rooms of this project are built.

add_library(zeph_options INTERFACE)
target_include_directories(zeph_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(zeph_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Werror)
if(ZEPH_SANITIZE)
  target_compile_options(zeph_options INTERFACE -fsanitize=${ZEPH_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented standard headers look uninitialised to g++ where they aren't.
    target_compile_options(zeph_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  target_link_options(zeph_options INTERFACE -fsanitize=${ZEPH_SANITIZE})
endif()
if(ZEPH_FUZZ)
  target_compile_options(zeph_options INTERFACE -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
                         -fno-omit-frame-pointer)
  target_link_options(zeph_options INTERFACE -fsanitize=address,undefined)
endif()

# zeph_floor(NAME SOURCES file... [BUILDS_ON floor...] [LIBRARIES system library...])
# One floor of the house: a static library that knows only the floors named. A floor that calls upward
# doesn't link in its own tests.
function(zeph_floor NAME)
  cmake_parse_arguments(FLOOR "" "" "SOURCES;BUILDS_ON;LIBRARIES" ${ARGN})
  add_library(${NAME} STATIC ${FLOOR_SOURCES})
  target_link_libraries(${NAME} PUBLIC zeph_options ${FLOOR_BUILDS_ON} PRIVATE ${FLOOR_LIBRARIES})
endfunction()

# zeph_test(ROOM LINKS target... [FIXTURES ...]): one GoogleTest program of all tests/<room>/*Test.cpp.
function(zeph_test ROOM)
  cmake_parse_arguments(TEST "" "" "LINKS" ${ARGN})
  file(GLOB SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/${ROOM}/*.cpp)
  if(SOURCES)
    add_executable(${ROOM}_tests ${SOURCES})
    target_link_libraries(${ROOM}_tests PRIVATE ${TEST_LINKS} GTest::gtest_main)
    target_include_directories(${ROOM}_tests PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
    gtest_discover_tests(${ROOM}_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
  endif()
endfunction()

# zeph_fuzz(NAME LINKS target...): fuzz/<NAME>.cpp with the seeds of fuzz/corpus/<NAME>. With ZEPH_FUZZ it searches
# (ctest gives it ZEPH_FUZZ_SECONDS); without, it only replays the seeds, so that targets never rot.
set(ZEPH_FUZZ_SECONDS 30 CACHE STRING "How long ctest lets each fuzz target search")
add_custom_target(fuzz_targets)
function(zeph_fuzz NAME)
  cmake_parse_arguments(FUZZ "" "" "LINKS" ${ARGN})
  set(CORPUS ${PROJECT_SOURCE_DIR}/fuzz/corpus/${NAME})
  if(ZEPH_FUZZ)
    add_executable(${NAME} ${NAME}.cpp)
    target_link_options(${NAME} PRIVATE -fsanitize=fuzzer)
    set(FOUND ${CMAKE_CURRENT_BINARY_DIR}/found/${NAME})
    file(MAKE_DIRECTORY ${FOUND})
    set(DICTIONARY)
    if(EXISTS ${PROJECT_SOURCE_DIR}/fuzz/${NAME}.dict)
      set(DICTIONARY -dict=${PROJECT_SOURCE_DIR}/fuzz/${NAME}.dict)
    endif()
    add_test(NAME fuzz.${NAME} COMMAND ${NAME} -max_total_time=${ZEPH_FUZZ_SECONDS} -timeout=10 -rss_limit_mb=2048
             ${DICTIONARY} ${FOUND} ${CORPUS})
    set_tests_properties(fuzz.${NAME} PROPERTIES TIMEOUT 600)
  else()
    add_executable(${NAME} ${NAME}.cpp ReplayMain.cpp)
    add_test(NAME replay.${NAME} COMMAND ${NAME} ${CORPUS})
  endif()
  target_link_libraries(${NAME} PRIVATE ${FUZZ_LINKS})
  add_dependencies(fuzz_targets ${NAME})
endfunction()
