# Every test that touches device paths runs in a private mount namespace in which /data and
# /dev/unix are fresh tmpfs mounts (see scripts/sandbox-exec). CTest starts each discovered
# test case through the wrapper, so cases are hermetic and may run in parallel.
set(SANDBOX_EXEC ${CMAKE_CURRENT_LIST_DIR}/../scripts/sandbox-exec)
get_filename_component(SANDBOX_EXEC ${SANDBOX_EXEC} ABSOLUTE)

if(NOT BUILD_TESTING)
  return()
endif()
include(GoogleTest)
find_package(GTest REQUIRED)

# add_sandboxed_gtest(<name> SOURCES ... LIBRARIES ...)
function(add_sandboxed_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR ${SANDBOX_EXEC})
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 120 ENVIRONMENT "ZARVO_HILOG_OUTPUT=off")
endfunction()
