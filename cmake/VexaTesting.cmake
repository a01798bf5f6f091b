# vexa_add_test(NAME name SOURCES ... LIBS ... [TIMEOUT s] [LABELS ...])
#
# One Qt Test executable per test. Every test runs through scripts/run-isolated, which gives it its
# own TMPDIR, HOME, XDG_CONFIG_HOME and XDG_RUNTIME_DIR (so hub sockets, the single-run guard and the
# settings never collide) and kills every process the test leaves behind.
function(vexa_add_test)
    cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS;ARGS" ${ARGN})
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE Qt5::Test ${T_LIBS})
    target_compile_definitions(${T_NAME} PRIVATE
        VEXA_BIN_DIR="${CMAKE_BINARY_DIR}/bin"
        VEXA_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    add_test(NAME ${T_NAME}
             COMMAND ${PROJECT_SOURCE_DIR}/scripts/run-isolated $<TARGET_FILE:${T_NAME}> ${T_ARGS})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    set_tests_properties(${T_NAME} PROPERTIES TIMEOUT ${T_TIMEOUT})
    if(T_LABELS)
        set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}")
    endif()
endfunction()

# vexa_add_script_test(NAME name COMMAND ... [TIMEOUT s]): a test that is a script (Node peers, shell).
function(vexa_add_script_test)
    cmake_parse_arguments(T "" "NAME;TIMEOUT" "COMMAND;LABELS" ${ARGN})
    add_test(NAME ${T_NAME} COMMAND ${PROJECT_SOURCE_DIR}/scripts/run-isolated ${T_COMMAND})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    set_tests_properties(${T_NAME} PROPERTIES TIMEOUT ${T_TIMEOUT}
        ENVIRONMENT "VEXA_BIN_DIR=${CMAKE_BINARY_DIR}/bin;VEXA_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
    if(T_LABELS)
        set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}")
    endif()
endfunction()
