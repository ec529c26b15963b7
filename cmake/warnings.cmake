# Every target of ours links project_options; libraries of others come in as system includes.
add_library(project_options INTERFACE)
target_compile_options(project_options INTERFACE -Wall -Wextra -Wpedantic -Werror)
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR})
find_package(Threads REQUIRED)
target_link_libraries(project_options INTERFACE Threads::Threads)
