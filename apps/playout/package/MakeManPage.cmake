# Writes playout's manual page from the program's own help, so that the two never differ:
#
#   cmake -DPROGRAM=<playout> -DVERSION=<version> -DOUTPUT=<file> -P MakeManPage.cmake

function(help_of result)
  execute_process(COMMAND "${PROGRAM}" ${ARGN} --help OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

# Text as it stands, for troff.
function(literal result text)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REPLACE "-" "\\-" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

help_of(overview)
literal(shown "${overview}")
set(page ".TH PLAYOUT 1 \"\" \"playout ${VERSION}\" \"User Commands\"
.SH NAME
playout \\- play and check video recordings, forward and backward at any speed
.SH SYNOPSIS
.B playout
.I COMMAND
[\\fIOPTION\\fR ...] [\\fIFILE\\fR ...]
.SH DESCRIPTION
.nf
${shown}.fi
.SH COMMANDS
")
string(REGEX MATCH "\nSubcommands:\n[^\n].*\n\nExamples:" listed "${overview}")
string(REGEX MATCHALL "\n  [a-z]+ " commands "${listed}")
list(TRANSFORM commands STRIP)
foreach(command IN LISTS commands)
  if("${command}" STREQUAL "playout")
    continue()
  endif()
  help_of(text ${command})
  literal(shown "${text}")
  string(APPEND page ".SS playout ${command}\n.nf\n${shown}.fi\n")
endforeach()
file(WRITE "${OUTPUT}" "${page}")
