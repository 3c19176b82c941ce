# Writes the source tree's revision into a small C++ file, touching it only when the revision
# changed, so that a new commit rebuilds one object and relinks, and nothing else.
# Arguments: -DSOURCE_DIR=... -DOUTPUT=...
set(revision unknown)
find_package(Git QUIET)
if(GIT_FOUND)
  execute_process(
    COMMAND ${GIT_EXECUTABLE} -C ${SOURCE_DIR} describe --always --dirty --abbrev=12
    OUTPUT_VARIABLE described
    RESULT_VARIABLE failed
    OUTPUT_STRIP_TRAILING_WHITESPACE
    ERROR_QUIET)
  if(NOT failed AND described MATCHES "^[A-Za-z0-9._+-]+$")
    set(revision ${described})
  endif()
endif()
set(content "// Generated at build time by cmake/WriteRevision.cmake.
#include \"support/build_info.h\"

const char *Zarvo::BuildInfo::Revision() {
    return \"${revision}\";
}
")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} previous)
endif()
if(NOT previous STREQUAL content)
  file(WRITE ${OUTPUT} "${content}")
endif()
