# unit_tests(PROGRAM [PLAIN] [FILTER pattern]): every test of a program for CTest. PLAIN: not run
# with sanitizers, and not built there.
#
# A sanitized program runs as a whole: to start it costs more than most of its tests. It prints only
# what fails, which would be lost among hundreds of tests that pass.
function(unit_tests program)
    cmake_parse_arguments(arg "PLAIN" "FILTER" "" ${ARGN})
    if(NOT UVCBRIDGE_SANITIZE)
        set(filter)
        if(arg_FILTER)
            set(filter TEST_FILTER "${arg_FILTER}")
        endif()
        set(labels "unit sanitize")
        if(arg_PLAIN)
            set(labels "unit")
        endif()
        gtest_discover_tests(${program} ${filter} DISCOVERY_TIMEOUT 60
            PROPERTIES LABELS "${labels}" TIMEOUT 120)
    elseif(arg_PLAIN)
        set_target_properties(${program} PROPERTIES EXCLUDE_FROM_ALL TRUE)
    else()
        set(filter)
        if(arg_FILTER)
            set(filter "--gtest_filter=${arg_FILTER}")
        endif()
        add_test(NAME ${program} COMMAND ${program} --gtest_brief=1 ${filter})
        set_tests_properties(${program} PROPERTIES LABELS "unit sanitize" TIMEOUT 900 COST 30)
    endif()
endfunction()
