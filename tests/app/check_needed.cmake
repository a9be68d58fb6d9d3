# Fails if PROGRAM itself asks for more than the C library, which is several files, and libvorn.so.
execute_process(COMMAND ${READELF} -d ${PROGRAM} OUTPUT_VARIABLE dynamic
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" needed "${dynamic}")
if(NOT needed)
  message(SEND_ERROR "${READELF} lists nothing that ${PROGRAM} needs")
endif()
foreach(line IN LISTS needed)
  if(NOT line MATCHES "\\[(lib(c|m|dl|vorn)\\.so|ld-linux)")
    message(SEND_ERROR "${PROGRAM} needs more than the C library and libvorn.so: ${line}")
  endif()
endforeach()
