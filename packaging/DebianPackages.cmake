# The Debian packages: cmake --build <build> --target package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR Morvane)
set(CPACK_PACKAGE_CONTACT "${MORVANE_PACKAGE_MAINTAINER}")
set(CPACK_STRIP_FILES ON)
set(CPACK_SET_DESTDIR ON) # there are files in /etc
set(CPACK_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# A package for each: a device may do without the client.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_COMPONENTS_ALL service)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The two device libraries are looked for in the build folder, where the stub libraries are. No package is known to
# hold them, so they become no dependency: the device has them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")

# dpkg-shlibdeps knows what is installed, and a cross build's libraries are not: what it finds natively, by hand.
if(CMAKE_CROSSCOMPILING)
  set(libraries "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 11)")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${MORVANE_DEBIAN_ARCHITECTURE}")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
endif()

set(CPACK_DEBIAN_SERVICE_PACKAGE_NAME com-morvane-transfer-service)
set(CPACK_DEBIAN_SERVICE_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS dbus)
if(CMAKE_CROSSCOMPILING)
  string(APPEND CPACK_DEBIAN_SERVICE_PACKAGE_DEPENDS ", ${libraries}, libglib2.0-0 (>= 2.51.0)")
endif()
set(CPACK_COMPONENT_SERVICE_DESCRIPTION
"backup, restore and update by USB stick, on the system bus
The service through which the user interface of a device works with USB
sticks. It needs the device's libraries libDeviceManagerClient.so and
libVesk.so, which no package holds, and on most applet changes it ends every
process that it may signal: it belongs on the device and nowhere else.
.
It starts with the next boot.")
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA
  "${CMAKE_CURRENT_BINARY_DIR}/debian/conffiles"
  "${CMAKE_CURRENT_BINARY_DIR}/debian/postinst"
  "${CMAKE_CURRENT_BINARY_DIR}/debian/prerm"
  "${CMAKE_CURRENT_BINARY_DIR}/debian/postrm")

if(TARGET transferctl)
  list(APPEND CPACK_COMPONENTS_ALL transferctl)
  set(CPACK_DEBIAN_TRANSFERCTL_PACKAGE_NAME transferctl)
  set(CPACK_DEBIAN_TRANSFERCTL_PACKAGE_SECTION utils)
  if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_TRANSFERCTL_PACKAGE_DEPENDS
      "${libraries}, libglib2.0-0 (>= 2.61.2), libjson-glib-1.0-0 (>= 1.5.2)")
  endif()
  set(CPACK_DEBIAN_TRANSFERCTL_PACKAGE_SUGGESTS
    "bash-completion, com-morvane-transfer-service")
  set(CPACK_COMPONENT_TRANSFERCTL_DESCRIPTION
"command-line client of the transfer service
Shows USB sticks and what is on them, and starts backup, restore and update,
by calls to com-morvane-transfer-service on the system bus. Whoever is in the
group that the service's bus policy names may use it.")
endif()

include(CPack)
