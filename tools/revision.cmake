# Writes OUT (a header) with VORN_REVISION: "git <describe>" of SOURCE when it is a git
# checkout, "" otherwise (a release tarball). The file is rewritten only when the text changes,
# so a build after a commit relinks `vorn` and nothing else.
execute_process(COMMAND git -C "${SOURCE}" describe --always --dirty --abbrev=10
                OUTPUT_VARIABLE described RESULT_VARIABLE failed ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
if(failed OR described STREQUAL "")
  set(revision "")
else()
  set(revision "git ${described}")
endif()
set(text "#pragma once\n#define VORN_REVISION \"${revision}\"\n")
if(EXISTS "${OUT}")
  file(READ "${OUT}" old)
endif()
if(NOT old STREQUAL text)
  file(WRITE "${OUT}" "${text}")
endif()
