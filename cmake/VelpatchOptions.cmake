# Compiler settings that every target of ours shares, and the libraries we stand on.

option(VELPATCH_FUZZ "Build the fuzz targets with libFuzzer (needs clang)" OFF)
option(VELPATCH_TESTS "Build the tests, fuzz targets and benchmarks" ON)
set(VELPATCH_SANITIZE "" CACHE STRING "Sanitizers for all of our code, e.g. address,undefined")

set(VELPATCH_SERVICE_BASE "https://localhost/" CACHE STRING
    "Where the patch stream service is asked unless a product's configuration says otherwise")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
# -O2, not -O3: the checksum loop and the inflater are slower at -O3 with GCC 12.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g")
# Type for the sanitizer builds: light optimisation, line tables only, assertions on.
set(CMAKE_CXX_FLAGS_SANITIZE "-O1 -g1 -fno-omit-frame-pointer")
set(CMAKE_EXE_LINKER_FLAGS_SANITIZE "")

if(WIN32)
    enable_language(RC)
endif()

add_library(velpatch_flags INTERFACE)
target_include_directories(velpatch_flags INTERFACE "${CMAKE_SOURCE_DIR}")
target_compile_options(velpatch_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)

if(VELPATCH_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "VELPATCH_FUZZ needs clang (CMAKE_CXX_COMPILER=clang++)")
    endif()
    if(NOT VELPATCH_SANITIZE)
        set(VELPATCH_SANITIZE "address,undefined")
    endif()
    target_compile_options(velpatch_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(VELPATCH_SANITIZE)
    target_compile_options(velpatch_flags INTERFACE
        -fsanitize=${VELPATCH_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(velpatch_flags INTERFACE -fsanitize=${VELPATCH_SANITIZE})
endif()
if(WIN32)
    # One file without companions; the system libraries come with every Windows.
    target_link_options(velpatch_flags INTERFACE -static)
    set(VELPATCH_SYSTEM_LIBRARIES
        advapi32 bcrypt comctl32 dbghelp gdi32 netapi32 ole32 oleacc shell32 shlwapi user32 uuid
        version ws2_32)
endif()

# Compiler cache. Paths below the source folder are rewritten, so a second clone or a second
# worktree finds what the first one compiled.
find_program(VELPATCH_CCACHE ccache)
if(VELPATCH_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env
        "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1
        "CCACHE_SLOPPINESS=pch_defines,time_macros" "${VELPATCH_CCACHE}")
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
if(WIN32)
    set(ZLIB_USE_STATIC_LIBS ON)
    set(OPENSSL_USE_STATIC_LIBS ON)
endif()
find_package(ZLIB REQUIRED)
find_package(absl REQUIRED)
find_package(OpenSSL 1.1.1 REQUIRED)
if(NOT WIN32)
    # Headers only: the library is loaded at run time, and only for a window.
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(GTK3 REQUIRED gtk+-3.0)
endif()
find_package(CLI11 QUIET)
# Without GoogleTest the programs can still be built, which is all that ./run needs.
find_package(GTest QUIET)
if(NOT GTest_FOUND)
    set(VELPATCH_TESTS OFF)
endif()
set(VELPATCH_HAS_TESTS "${VELPATCH_TESTS}" CACHE INTERNAL "Whether the tests are part of the build")
