# nm_add_test(NAME SOURCES... LIBS ... [LABELS ...])
# One executable per tested class or unit; labelled "unit" unless told
# otherwise, so the sanitizer pass can select the unit tests.
function(nm_add_test name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} nm_options)
  if(NOT T_LABELS)
    set(T_LABELS unit)
  endif()
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES LABELS "${T_LABELS}" TIMEOUT 300
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LANG=C.UTF-8")
endfunction()
