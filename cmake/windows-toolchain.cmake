# Cross-compiles for 64-bit Windows with Debian's mingw-w64 (the posix thread variant). The
# libraries come from scripts/windows-sysroot.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELPATCH_WINDOWS_SYSROOT)
if(NOT VELPATCH_WINDOWS_SYSROOT)
    execute_process(
        COMMAND "${CMAKE_CURRENT_LIST_DIR}/../scripts/windows-sysroot" --where
        OUTPUT_VARIABLE VELPATCH_WINDOWS_SYSROOT
        OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    set(VELPATCH_WINDOWS_SYSROOT "${VELPATCH_WINDOWS_SYSROOT}" CACHE PATH "Windows libraries")
    if(NOT EXISTS "${VELPATCH_WINDOWS_SYSROOT}/.absl-made")
        message(FATAL_ERROR "The Windows libraries are missing: run scripts/windows-sysroot first")
    endif()
endif()

set(CMAKE_FIND_ROOT_PATH "${VELPATCH_WINDOWS_SYSROOT}" /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Windows 7 and up; wide system calls.
set(CMAKE_C_FLAGS_INIT "-D_WIN32_WINNT=0x0601 -DUNICODE -D_UNICODE")
set(CMAKE_CXX_FLAGS_INIT "-D_WIN32_WINNT=0x0601 -DUNICODE -D_UNICODE")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run")
