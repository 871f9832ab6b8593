# kiv_discover_suites(program [ALONE all | suite...] [PROPERTIES property value...]): the suites of a test program become
# ctest's tests, each a process of its own. Of the suites named behind ALONE each test is one: those that change what
# holds for a whole process, and those that take long. The start of a process is what most tests would take longest for.
#
# The program is asked for its suites when ctest starts, as with gtest_discover_tests(DISCOVERY_MODE PRE_TEST).
function(kiv_discover_suites program)
  cmake_parse_arguments(PARSE_ARGV 1 KIV "" "" "ALONE;PROPERTIES")
  set(list ${CMAKE_CURRENT_BINARY_DIR}/${program}_suites.cmake)
  get_property(emulator TARGET ${program} PROPERTY CROSSCOMPILING_EMULATOR)
  file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${program}_discover.cmake CONTENT
"set(KIV_PROGRAM [==[$<TARGET_FILE:${program}>]==])
set(KIV_NAME [==[${program}]==])
set(KIV_EMULATOR [==[${emulator}]==])
set(KIV_ALONE [==[${KIV_ALONE}]==])
set(KIV_PROPERTIES [==[${KIV_PROPERTIES}]==])
set(KIV_LIST [==[${list}]==])
include([==[${PROJECT_SOURCE_DIR}/cmake/KivListSuites.cmake]==])
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${CMAKE_CURRENT_BINARY_DIR}/${program}_discover.cmake)
endfunction()
