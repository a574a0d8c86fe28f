# Cross build for the panels' 32-bit little-endian ARM Linux (Debian armhf).
#
# Compiles with Debian's arm-linux-gnueabihf cross compilers against a Debian
# armhf sysroot, and runs the built programs (tests, test discovery) under
# qemu-arm. scripts/armhf.sh makes the sysroot and configures with this file:
#
#   cmake -S . -B build/armhf -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake
#
# The sysroot is build/armhf-sysroot unless the environment variable
# TECO_ARMHF_SYSROOT names another one.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

if(DEFINED ENV{TECO_ARMHF_SYSROOT} AND NOT "$ENV{TECO_ARMHF_SYSROOT}" STREQUAL "")
  set(_teco_sysroot "$ENV{TECO_ARMHF_SYSROOT}")
else()
  get_filename_component(_teco_sysroot "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot" ABSOLUTE)
endif()
if(NOT EXISTS "${_teco_sysroot}/usr/include")
  message(FATAL_ERROR "no armhf sysroot at ${_teco_sysroot}; scripts/armhf.sh makes one")
endif()

set(_teco_triplet arm-linux-gnueabihf)
set(CMAKE_SYSROOT "${_teco_sysroot}")
set(CMAKE_C_COMPILER ${_teco_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${_teco_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${_teco_triplet})
# GCC notes on ARM that std::vector iterators are passed differently since
# GCC 7.1; everything here is built by one compiler, so the notes are noise.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# Libraries, headers and CMake packages only from the sysroot; programs
# (pkg-config, c++filt, qmake's helpers) from this machine.
set(CMAKE_FIND_ROOT_PATH "${_teco_sysroot}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg_check_modules reads the sysroot's .pc files and prefixes their paths.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${_teco_sysroot}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${_teco_sysroot}/usr/lib/${_teco_triplet}/pkgconfig:${_teco_sysroot}/usr/lib/pkgconfig:${_teco_sysroot}/usr/share/pkgconfig")
unset(ENV{PKG_CONFIG_PATH})

# ARM programs run under qemu's user-mode emulator, with the sysroot as the
# root for the dynamic loader and the libraries (Qt's plug-ins included).
find_program(TECO_QEMU_ARM NAMES qemu-arm-static qemu-arm NO_CMAKE_FIND_ROOT_PATH)
if(NOT TECO_QEMU_ARM)
  message(FATAL_ERROR "qemu-arm not found (Debian package qemu-user)")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR "${TECO_QEMU_ARM};-L;${_teco_sysroot}")

# Qt's code generators run on this machine: the root CMakeLists.txt makes
# Qt5::moc, Qt5::rcc and Qt5::uic from this directory before Qt's own package
# files would point them at the sysroot's ARM binaries.
set(QT_HOST_BIN_DIR /usr/lib/qt5/bin)
