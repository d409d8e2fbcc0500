# cmake -D VORN=COMMAND -D SOURCE=vorn.1.in -D TARGET=vorn.1 -D PROJECT_VERSION=... -P manpage.cmake
# Writes the man page: the part on the commands is what the command itself says of them.

function(help_of output)
  execute_process(COMMAND "${VORN}" ${ARGN} --help OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
  # The closing line stands under every command; man pages have a section for it.
  string(REGEX REPLACE "\n\n[^\n]*Exit status:.*" "\n" text "${text}")
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

# Text as it is: backslashes, hyphens and a dot or quote at the start of a line mean something.
function(as_roff text output)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

help_of(overview)
string(REGEX REPLACE ".*\nSubcommands:\n" "" names "${overview}")
string(REGEX MATCHALL "(^|\n)  [a-z-]+" names "${names}")
set(commands)
foreach(name IN LISTS names)
  string(STRIP "${name}" name)
  help_of(text ${name})
  as_roff("${text}" text)
  string(APPEND commands ".SS ${name}\n.nf\n${text}.fi\n")
endforeach()
configure_file("${SOURCE}" "${TARGET}" @ONLY)
