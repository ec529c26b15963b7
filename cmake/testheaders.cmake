# The headers that every test includes, compiled once a flavour instead of once a file: they took
# half of the tests' compile time. Call after all test targets exist.
function(precompile_test_headers folder)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target ${targets})
        # Sources that are shipped must stand without them.
        get_target_property(sources ${target} SOURCES)
        list(FILTER sources INCLUDE REGEX "^${PROJECT_SOURCE_DIR}/(control|engine|board)/")
        if(sources)
            set_source_files_properties(${sources} TARGET_DIRECTORY ${target}
                PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
        endif()
        get_target_property(libraries ${target} LINK_LIBRARIES)
        get_target_property(options ${target} COMPILE_OPTIONS)
        # A target with options of its own cannot use what was compiled without them.
        if(target MATCHES "^test_headers" OR NOT options STREQUAL "-O1;-g1")
            continue()
        elseif(libraries MATCHES "sanitize_options")
            target_precompile_headers(${target} REUSE_FROM test_headers_sanitized)
        elseif(libraries MATCHES "GTest::|test_support")
            target_precompile_headers(${target} REUSE_FROM test_headers)
        endif()
    endforeach()
    get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
    foreach(inner ${folders})
        precompile_test_headers(${inner})
    endforeach()
endfunction()

foreach(flavour test_headers test_headers_sanitized)
    add_library(${flavour} OBJECT ${PROJECT_SOURCE_DIR}/tests/headers.cpp)
    target_link_libraries(${flavour} PRIVATE project_options GTest::gtest)
    target_precompile_headers(${flavour} PRIVATE
        <algorithm> <chrono> <cstdint> <functional> <memory> <mutex> <string> <thread> <vector>
        <gtest/gtest.h>)
endforeach()
target_link_libraries(test_headers_sanitized PRIVATE sanitize_options)
