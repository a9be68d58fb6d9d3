# Fails if PROGRAM asks for more than version 2.31 of the C library, and names what asks for it.
set(newest 2.31)

execute_process(COMMAND ${READELF} --wide --version-info ${PROGRAM} OUTPUT_VARIABLE versions
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "Name: GLIBC_[^ \n]+" needs "${versions}")
if(NOT needs)
  message(SEND_ERROR "${READELF} lists no version of the C library that ${PROGRAM} needs")
endif()
list(REMOVE_DUPLICATES needs)

execute_process(COMMAND ${READELF} --wide --dyn-syms ${PROGRAM} OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
foreach(need IN LISTS needs)
  string(REPLACE "Name: GLIBC_" "" version "${need}")
  # What is no number (ABI_DT_RELR, PRIVATE) is newer, or nothing to rely on.
  if(version MATCHES "^[0-9.]+$" AND version VERSION_LESS_EQUAL newest)
    continue()
  endif()
  string(REGEX MATCHALL "[^ \n]+@+GLIBC_${version}" names "${symbols}")
  string(REPLACE ";" ", " names "${names}")
  message(SEND_ERROR "${PROGRAM} needs version ${version} of the C library and not just ${newest}: "
                     "${names}. See docs/board-baseline.md.")
endforeach()
