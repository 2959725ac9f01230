# cmake -DFILE=generated.c -DDESCRIPTION=interface.xml -P StripUnnamedArguments.cmake
# Replaces the argument names "unnamed_argK" in FILE by NULL. Fails unless there are as many as DESCRIPTION has
# arguments without a name.
file(READ "${DESCRIPTION}" description)
string(REGEX MATCHALL "<arg [^>]*>" nameless "${description}")
list(FILTER nameless EXCLUDE REGEX " name=")
list(LENGTH nameless expected)

file(READ "${FILE}" text)
set(name "\\(gchar \\*\\) \"unnamed_arg[0-9]+\"")
string(REGEX MATCHALL "${name}" found "${text}")
list(LENGTH found count)
if(NOT count EQUAL expected)
  file(REMOVE "${FILE}")
  message(FATAL_ERROR "${FILE}: expected ${expected} unnamed arguments, found ${count}")
endif()
string(REGEX REPLACE "${name}" "NULL" text "${text}")
file(WRITE "${FILE}" "${text}")
