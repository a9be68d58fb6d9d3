# Fails if LIBRARY depends, however indirectly, on more than the C and C++ standard libraries (and,
# in a build with sanitizers, theirs).
execute_process(COMMAND ${LDD} ${LIBRARY} OUTPUT_VARIABLE listed COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${listed}")
foreach(line IN LISTS lines)
  if(NOT line MATCHES "lib(c|m|dl|rt|pthread|gcc_s|stdc\\+\\+|asan|tsan|ubsan)\\.so|ld-linux|linux-vdso")
    message(SEND_ERROR "an unexpected dependency: ${line}")
  endif()
endforeach()
