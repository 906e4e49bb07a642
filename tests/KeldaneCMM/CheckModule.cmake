# Checks what the built module exports and needs. It is loaded into other programs' processes, so it may export only its
# factory and its constant strings, must bring no library that could clash there, and must never be unmapped.

function(output_of variable)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE error RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${ARGN} failed: ${error}")
  endif()
  set(${variable} "${output}" PARENT_SCOPE)
endfunction()

set(expected
  KeldaneBackupStateChangedNotification
  KeldaneBackupStateConnectionChangedNotification
  KeldaneConnectionReadyChangedNotification
  KeldanePluginFactory
  LAST_ACCT_EMAIL_STRING
  LAST_COMPUTER_NUM_INT
  LAST_SERVER_URL_STRING
  LAST_SKIN_ID_STRING)
output_of(symbols ${NM} -D --defined-only ${MODULE})
string(REGEX MATCHALL "[^ \n]+\n" exported "${symbols}")
string(REPLACE "\n" "" exported "${exported}")
list(SORT exported)
if(NOT exported STREQUAL expected)
  message(FATAL_ERROR "The module exports\n  ${exported}\ninstead of\n  ${expected}")
endif()

set(allowed "linux-vdso|ld-linux[^ ]*|libc|libm|libgcc_s|libstdc\\+\\+|libkeldane-platform")
if(SANITIZE)
  string(APPEND allowed "|lib[a-z]+san|libdl|libpthread|librt")  # the sanitizers' libraries
endif()
output_of(libraries ldd ${MODULE})
string(REGEX MATCHALL "[^\n]+\n" lines "${libraries}")
foreach(line ${lines})
  string(STRIP "${line}" line)
  if(line MATCHES "not found")
    message(FATAL_ERROR "The module lacks a library: ${line}")
  endif()
  if(NOT line MATCHES "^(/[^ ]*/)?(${allowed})\\.so\\.[0-9]")
    message(FATAL_ERROR "The module needs a library that is none of its own: ${line}")
  endif()
endforeach()
if(NOT libraries MATCHES "libkeldane-platform\\.so\\.1 => ")
  message(FATAL_ERROR "The module does not share the platform library:\n${libraries}")
endif()

output_of(dynamic ${READELF} -d ${MODULE})
if(NOT dynamic MATCHES "NODELETE")
  message(FATAL_ERROR "The module can be unmapped while a thread of it is running:\n${dynamic}")
endif()
