# tarn_test(NAME LABEL unit|node SOURCES... LIBRARIES...)
#
# One GoogleTest program. `unit` programs are plain; `node` programs run inside the sandbox of the
# simulated access point (sim/sandbox), once per program, and are skipped (77) where namespaces are
# forbidden.
function(tarn_test name)
  cmake_parse_arguments(T "" "LABEL" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${name} PRIVATE TEST_DATA_DIR="${PROJECT_SOURCE_DIR}/tests/data")
  target_link_libraries(${name} PRIVATE ${T_LIBRARIES} tarn_warnings GTest::gtest GTest::gtest_main)
  if(T_LABEL STREQUAL node)
    add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/sim/sandbox/run $<TARGET_FILE:${name}>)
    set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77)
  else()
    add_test(NAME ${name} COMMAND ${name})
  endif()
  set_tests_properties(${name} PROPERTIES LABELS ${T_LABEL})
endfunction()
