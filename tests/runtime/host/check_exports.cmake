# Fails unless the dynamic symbols that LIBRARY defines are exactly the functions of HEADER.
execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
                OUTPUT_VARIABLE listed COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL " [A-Za-z] [^ \n]+" symbols "${listed}")
list(TRANSFORM symbols REPLACE "^ . " "")
file(READ ${HEADER} header)
string(REGEX MATCHALL "VORN_API [^;(]*[ *](vorn_[a-z_]+)\\(" functions "${header}")
list(TRANSFORM functions REPLACE ".*[ *](vorn_[a-z_]+)\\($" "\\1")
list(SORT symbols)
list(SORT functions)
if(NOT symbols STREQUAL functions OR NOT functions)
  message(FATAL_ERROR "exported:\n  ${symbols}\ndeclared:\n  ${functions}")
endif()
