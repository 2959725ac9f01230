# Turns D-Bus interface descriptions into GObject skeletons and proxies below <build>/common/cmake, the
# include root of generated code: #include "com.morvane.transfer/dbus-adaptor.h".
find_program(GDBUS_CODEGEN gdbus-codegen REQUIRED)
set(MORVANE_GENERATED_ROOT "${CMAKE_BINARY_DIR}/common/cmake")

# morvane_dbus_interface(TARGET DESCRIPTION FOLDER UNIT)
#
# Generates FOLDER/UNIT.{c,h} from DESCRIPTION and builds them into the static library TARGET.
# gdbus-codegen serves an argument without a name as "unnamed_argN"; clients are promised that it has none, so each
# such name is replaced by NULL.
function(morvane_dbus_interface target description folder unit)
  set(base "${MORVANE_GENERATED_ROOT}/${folder}/${unit}")
  set(strip_script "${PROJECT_SOURCE_DIR}/cmake/StripUnnamedArguments.cmake")
  file(MAKE_DIRECTORY "${MORVANE_GENERATED_ROOT}/${folder}")
  add_custom_command(
    OUTPUT "${base}.c" "${base}.h"
    COMMAND ${GDBUS_CODEGEN} --interface-prefix com. --c-generate-autocleanup all
            --header --output "${base}.h" "${description}"
    COMMAND ${GDBUS_CODEGEN} --interface-prefix com. --c-generate-autocleanup all
            --body --output "${base}.c" "${description}"
    COMMAND ${CMAKE_COMMAND} "-DFILE=${base}.c" "-DDESCRIPTION=${description}" -P "${strip_script}"
    DEPENDS "${description}" "${strip_script}"
    COMMENT "Generating ${folder}/${unit}.{c,h}"
    VERBATIM)
  add_library(${target} STATIC "${base}.c" "${base}.h")
  target_include_directories(${target} SYSTEM PUBLIC "${MORVANE_GENERATED_ROOT}")
  target_compile_options(${target} PRIVATE -w)
  target_link_libraries(${target} PUBLIC PkgConfig::GIO PRIVATE morvane_hardening)
endfunction()
