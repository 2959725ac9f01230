# Included by the toolchain files: Debian's cross compiler, the libraries and headers of scripts/sysroot, and
# the emulator that runs what was built.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${MORVANE_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${MORVANE_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${MORVANE_TRIPLET})

get_filename_component(morvane_source "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)
set(CMAKE_SYSROOT "${morvane_source}/build/sysroot-${MORVANE_DEBIAN_ARCHITECTURE}")
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${morvane_source}/simulator/sandbox/emulator;${MORVANE_DEBIAN_ARCHITECTURE}")

# Libraries of the sysroot, programs of this machine.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_SYSROOT}/usr/lib/${MORVANE_TRIPLET}/pkgconfig")
