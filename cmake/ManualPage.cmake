# One manual page: a template of docs/man with the options and commands that the program itself says.
#   cmake -DPROGRAM=... -DTEMPLATE=... -DPAGE=... -DPROJECT_VERSION=... -P ManualPage.cmake
execute_process(COMMAND ${PROGRAM} --manual-section OUTPUT_VARIABLE MANUAL_SECTION RESULT_VARIABLE result
  OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} --manual-section: ${result}")
endif()
configure_file(${TEMPLATE} ${PAGE} @ONLY)
file(TOUCH ${PAGE})  # also when it says the same
