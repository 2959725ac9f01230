# 64-bit ARM, as Debian builds it.
set(MORVANE_DEBIAN_ARCHITECTURE arm64)
set(MORVANE_TRIPLET aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
