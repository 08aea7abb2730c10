# Windows from Linux with Debian's MinGW-w64; the processor is set by whoever includes this.
set(CMAKE_SYSTEM_NAME Windows)
set(triplet ${CMAKE_SYSTEM_PROCESSOR}-w64-mingw32)
# The variant whose threads are those of the C++ standard; the other one has no std::thread.
set(CMAKE_C_COMPILER ${triplet}-gcc-posix)
set(CMAKE_CXX_COMPILER ${triplet}-g++-posix)
set(CMAKE_RC_COMPILER ${triplet}-windres)

# The services of Windows 7 and later.
add_compile_definitions(_WIN32_WINNT=0x0601)
# Nothing of the compiler's has to be beside our programs.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(ZLIB_USE_STATIC_LIBS ON)

list(APPEND CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Libraries that Debian has for itself only: headers, and sources that are built with ours.
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})

if(CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64)
  find_program(TESSEL_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
  if(TESSEL_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${TESSEL_WINE})
  endif()
endif()
