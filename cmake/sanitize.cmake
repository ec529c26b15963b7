# sanitize_options: linked by the application's libraries, the engine and the tests that link them.
add_library(sanitize_options INTERFACE)
if(UVCBRIDGE_SANITIZE STREQUAL "address")
    target_compile_options(sanitize_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    # Static runtime: the shared one insists on standing before the board's preload library.
    # The preload library asks a running program for its leaks by that name.
    target_link_options(sanitize_options INTERFACE
        -fsanitize=address,undefined -static-libasan -static-libubsan
        -Wl,--export-dynamic-symbol=__lsan_do_recoverable_leak_check)
elseif(UVCBRIDGE_SANITIZE STREQUAL "thread")
    target_compile_options(sanitize_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(sanitize_options INTERFACE -fsanitize=thread)
elseif(UVCBRIDGE_SANITIZE)
    message(FATAL_ERROR "UVCBRIDGE_SANITIZE is '${UVCBRIDGE_SANITIZE}': "
        "it takes 'address', 'thread' or nothing")
endif()
