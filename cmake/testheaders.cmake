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
                PROPERTIES SKIP_PRECOMPILE_HEADERS ON SKIP_UNITY_BUILD_INCLUSION ON)
        endif()
        get_target_property(libraries ${target} LINK_LIBRARIES)
        get_target_property(options ${target} COMPILE_OPTIONS)
        # A target with other options cannot use what was compiled with these.
        if(target MATCHES "^test_headers")
            continue()
        elseif(libraries MATCHES "sanitize_options")
            set(flavour test_headers_sanitized)
        elseif(libraries MATCHES "GTest::|test_support")
            set(flavour test_headers)
        else()
            continue()
        endif()
        get_target_property(flavour_options ${flavour} COMPILE_OPTIONS)
        if(options STREQUAL flavour_options)
            target_precompile_headers(${target} REUSE_FROM ${flavour})
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
if(UVCBRIDGE_SANITIZE)
    target_compile_options(test_headers_sanitized PRIVATE -O0) # as the unit tests
endif()
