# Writes a man page for eqdrc and for each of its subcommands, found in its own --help, so
# that a new command gets its page and no page restates what --help says.
#   cmake -DTOOL=eqdrc -DHELP2MAN=help2man -DVERSION=2.0.0 -DOUT=DIR -P man_pages.cmake
# help2man runs a program with --help; for a subcommand that program is a wrapper, and the
# tool sees "eqdrc" as its name, so that the usage lines do not name the build folder.
# help2man dates the pages from SOURCE_DATE_EPOCH when it is set.
cmake_policy(SET CMP0007 NEW)
file(REMOVE_RECURSE ${OUT})
file(MAKE_DIRECTORY ${OUT}/wrappers)

# The subcommands a --help text lists.
function(list_subcommands help names_var)
  set(names "")
  set(in_list FALSE)
  string(REPLACE ";" "<semicolon>" help "${help}")
  string(REPLACE "\n" ";" lines "${help}")
  foreach(line IN LISTS lines)
    if(line STREQUAL "Subcommands:")
      set(in_list TRUE)
    elseif(in_list AND line MATCHES "^  ([a-z0-9_-]+)  ")
      list(APPEND names ${CMAKE_MATCH_1})
    else()
      set(in_list FALSE)
    endif()
  endforeach()
  set(${names_var} ${names} PARENT_SCOPE)
endfunction()

# The page of the command WORDS (a list, empty for eqdrc itself), then its subcommands'.
# The first line of a command's help says what it does ("eqdrc: ..." at the top).
function(write_page words)
  list(JOIN words " " spaced)
  list(JOIN words "-" dashed)
  set(page eqdrc)
  if(dashed)
    set(page eqdrc-${dashed})
  endif()
  execute_process(COMMAND ${TOOL} ${words} --help OUTPUT_VARIABLE help RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "eqdrc ${spaced} --help failed (${status})")
  endif()
  string(REGEX REPLACE "\n.*" "" description "${help}")
  string(REGEX REPLACE "^eqdrc: " "" description "${description}")
  list_subcommands("${help}" names)

  set(wrapper ${OUT}/wrappers/${page})
  file(WRITE ${wrapper} "#!/bin/bash\nexec -a eqdrc '${TOOL}' ${spaced} \"$@\"\n")
  file(CHMOD ${wrapper} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  set(see_also "")
  if(dashed)
    string(APPEND see_also ".BR eqdrc (1)\n")
  endif()
  foreach(name IN LISTS names)
    string(APPEND see_also ".BR ${page}-${name} (1)\n")
  endforeach()
  file(WRITE ${OUT}/wrappers/${page}.h2m "[SEE ALSO]\n${see_also}")
  execute_process(COMMAND ${HELP2MAN} --no-info --section=1 --version-string=${VERSION}
                    "--name=${description}" --source=tqaudio_effect_eqdrc
                    --include=${OUT}/wrappers/${page}.h2m --output=${OUT}/${page}.1 ${wrapper}
                  RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "help2man failed for eqdrc ${spaced}")
  endif()
  foreach(name IN LISTS names)
    set(sub ${words} ${name})
    write_page("${sub}")
  endforeach()
endfunction()

write_page("")
file(REMOVE_RECURSE ${OUT}/wrappers)
