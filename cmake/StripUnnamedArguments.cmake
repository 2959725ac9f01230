# cmake -DFILE=generated.c -DEXPECTED=N -P StripUnnamedArguments.cmake
# Replaces the N argument names "unnamed_argK" in FILE by NULL and fails when there are not exactly N.
file(READ "${FILE}" text)
set(name "\\(gchar \\*\\) \"unnamed_arg[0-9]+\"")
string(REGEX MATCHALL "${name}" found "${text}")
list(LENGTH found count)
if(NOT count EQUAL EXPECTED)
  file(REMOVE "${FILE}")
  message(FATAL_ERROR "${FILE}: expected ${EXPECTED} unnamed arguments, found ${count}")
endif()
string(REGEX REPLACE "${name}" "NULL" text "${text}")
file(WRITE "${FILE}" "${text}")
