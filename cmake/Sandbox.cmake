# Every test that runs device-path code runs in a private mount namespace in which the whole host
# is read-only and /data, /dev/unix and /tmp are fresh tmpfs mounts (see scripts/sandbox-exec): the
# code under test runs as root and changes owners, modes and names, and a regression in it must
# fail a test, never change the machine. Confinement tests aim their escape links at a scratch
# stand-in for the host below /data, so that an escape shows as a changed scratch tree. CTest starts
# each discovered test case through the wrapper, so cases are hermetic and may run in parallel.
set(SANDBOX_EXEC ${CMAKE_CURRENT_LIST_DIR}/../scripts/sandbox-exec)
get_filename_component(SANDBOX_EXEC ${SANDBOX_EXEC} ABSOLUTE)
# The checkout and the build tree stay readable when they lie below /tmp.
set(SANDBOX_EXEC_COMMAND ${SANDBOX_EXEC} --visible ${CMAKE_SOURCE_DIR} --visible ${CMAKE_BINARY_DIR})

if(NOT BUILD_TESTING)
  return()
endif()
include(GoogleTest)
find_package(GTest REQUIRED)

# add_sandboxed_gtest(<name> [NESTED] SOURCES ... LIBRARIES ...)
# NESTED: the tests start programs that make their own sandbox inside this one (the runner).
function(add_sandboxed_gtest name)
  cmake_parse_arguments(ARG "NESTED" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  set(emulator ${SANDBOX_EXEC_COMMAND})
  if(ARG_NESTED)
    list(APPEND emulator --nested)
  endif()
  set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR "${emulator};--")
  gtest_discover_tests(${name}
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 120 ENVIRONMENT "ZARVO_HILOG_OUTPUT=off")
endfunction()
