# Ends the HTTP server of the tests.
file(READ ${PORT_FILE} port)
string(STRIP "${port}" port)
file(DOWNLOAD http://127.0.0.1:${port}/stop ${PORT_FILE}.stopped STATUS status)
file(REMOVE ${PORT_FILE})
if(NOT status MATCHES "^0;")
  message(FATAL_ERROR "the server at port ${port} did not answer: ${status}")
endif()
