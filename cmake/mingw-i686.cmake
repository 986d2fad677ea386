# Cross build for Windows (i686) with Debian's mingw-w64, posix thread model.
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake
# Dependencies (zlib, Jansson, minizip, GoogleTest) come from
# scripts/build-win-deps.sh i686, installed under build-win-deps/i686.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(TMAIN_MINGW_TRIPLE i686-w64-mingw32)
set(CMAKE_C_COMPILER ${TMAIN_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TMAIN_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${TMAIN_MINGW_TRIPLE}-windres)
set(TMAIN_WIN_DEPS ${CMAKE_CURRENT_LIST_DIR}/../build-win-deps/i686 CACHE PATH "Windows dependencies")
list(APPEND CMAKE_FIND_ROOT_PATH /usr/${TMAIN_MINGW_TRIPLE} ${TMAIN_WIN_DEPS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config must see the Windows .pc files only.
set(ENV{PKG_CONFIG_LIBDIR} "${TMAIN_WIN_DEPS}/lib/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
# zlib is linked statically into tmain.dll.
set(ZLIB_USE_STATIC_LIBS ON)
