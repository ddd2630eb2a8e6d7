# One interface target carries every compile setting, so each library and test gets the same
# language level, warnings and sanitizers by linking it.
add_library(kestrow_options INTERFACE)
target_compile_features(kestrow_options INTERFACE cxx_std_20)
# Qt's lower-case keyword macros (emit, signals, slots) would rewrite the core's own Signal type.
target_compile_definitions(kestrow_options INTERFACE QT_NO_KEYWORDS)
target_compile_options(kestrow_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
    -Wold-style-cast -Woverloaded-virtual -Wimplicit-fallthrough
    -Wcast-align -Wformat=2
    # GCC 12 reports uninitialised reads inside std::variant moves that cannot happen; clang,
    # which builds the sanitizer run, keeps its own check on.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
if(KESTROW_WERROR)
    target_compile_options(kestrow_options INTERFACE -Werror)
endif()
if(KESTROW_SANITIZE OR KESTROW_FUZZ)
    target_compile_options(kestrow_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(kestrow_options INTERFACE -fsanitize=address,undefined)
endif()
if(KESTROW_FUZZ)
    # Coverage feedback for the library code the fuzz targets drive, not just the targets.
    target_compile_options(kestrow_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
