# 32-bit ARM with hardware floating point, as Debian builds it.
set(MORVANE_DEBIAN_ARCHITECTURE armhf)
set(MORVANE_TRIPLET arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
