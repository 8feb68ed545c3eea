# zmv_add_test(NAME name SOURCES a_test.cpp ... [LIBS lib ...] [LABELS unit ...] [TIMEOUT seconds])
#
# One executable, one CTest entry. Unit tests link `zmv_scripted` (the rooms on the scripted host); interop tests and demos
# link the shared libraries and the default host.
if(CMAKE_CROSSCOMPILING)
  # Debian ships GoogleTest's source beside its library; the target needs a build of its own.
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  add_library(GTest::gmock ALIAS gmock)
  add_library(GTest::gtest_main ALIAS gtest_main)
else()
  find_package(GTest REQUIRED)
endif()

# GoogleTest's headers are most of what a test's compiler reads; they are read once per build.
file(WRITE ${PROJECT_BINARY_DIR}/test_headers.cpp "int main() {}  // carries the headers\n")
add_executable(zmv_test_headers ${PROJECT_BINARY_DIR}/test_headers.cpp)
target_link_libraries(zmv_test_headers PRIVATE zmv_flags GTest::gmock)
target_precompile_headers(zmv_test_headers PRIVATE
  <gmock/gmock.h> <algorithm> <cstdint> <cstring> <string> <vector>)

# What the thread sanitizer is to see.
add_custom_target(zmv_thread_tests)

function(zmv_add_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE zmv_flags ${T_LIBS} GTest::gmock GTest::gtest_main)
  target_precompile_headers(${T_NAME} REUSE_FROM zmv_test_headers)
  if("threads" IN_LIST T_LABELS)
    add_dependencies(zmv_thread_tests ${T_NAME})
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  add_test(NAME ${T_NAME} COMMAND ${T_NAME} WORKING_DIRECTORY ${PROJECT_BINARY_DIR})
  set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}" TIMEOUT ${T_TIMEOUT}
    ENVIRONMENT "ZMV_SAMPLES=${PROJECT_SOURCE_DIR}/samples")
endfunction()
