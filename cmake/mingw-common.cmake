# Shared part of the mingw-w64 toolchain files: Debian's compilers with the
# posix thread model, for TMAIN_MINGW_ARCH (x86_64 or i686). Dependencies
# (zlib, Jansson, minizip, GoogleTest) come from scripts/build-win-deps.sh,
# installed under build-win-deps/<arch>.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR ${TMAIN_MINGW_ARCH})
set(TMAIN_MINGW_TRIPLE ${TMAIN_MINGW_ARCH}-w64-mingw32)
set(CMAKE_C_COMPILER ${TMAIN_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TMAIN_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${TMAIN_MINGW_TRIPLE}-windres)
set(TMAIN_WIN_DEPS ${CMAKE_CURRENT_LIST_DIR}/../build-win-deps/${TMAIN_MINGW_ARCH} CACHE PATH "Windows dependencies")
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
