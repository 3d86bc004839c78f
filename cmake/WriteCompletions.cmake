# SPDX-License-Identifier: Apache-2.0
# cmake -D PROGRAM=name -D HELP=file -D FOLDER=folder -P WriteCompletions.cmake: writes completions for bash, zsh and fish
# from the options that `PROGRAM --help` lists.
file(READ ${HELP} help)
# Semicolons and brackets are special in CMake lists.
string(REPLACE ";" "," help "${help}")
string(REPLACE "[" "(" help "${help}")
string(REPLACE "]" ")" help "${help}")
string(REPLACE "\n" ";" lines "${help}")

set(queues FALSE)
set(section "")
set(options "")
# The layout depends on CLI11's version: headings may be in capitals, and long options may have their own column.
foreach(line IN LISTS lines)
  string(REGEX REPLACE " +$" "" line "${line}")
  if(line MATCHES "^([A-Za-z]+):$")
    string(TOUPPER ${CMAKE_MATCH_1} section)
  elseif(NOT line MATCHES "^ ")
    set(section "")
  elseif(section STREQUAL POSITIONALS AND line MATCHES "^  QUEUE")
    set(queues TRUE)
  elseif(section STREQUAL OPTIONS AND line MATCHES "^  (        |-[a-z], *)?--([a-z-]+)(.*)$")
    set(name ${CMAKE_MATCH_2})
    set(rest "${CMAKE_MATCH_3}")
    # The value's name is followed by two blanks and the help text, or is alone on the line.
    set(value "")
    set(${name}_help "")
    if(rest MATCHES "^{-}")
      set(value OPTIONAL)
    elseif(rest MATCHES "^ ([A-Z]+)([^a-z]|$)")
      set(value ${CMAKE_MATCH_1})
    endif()
    if(rest MATCHES "  +([^ ].*)$")
      set(${name}_help "${CMAKE_MATCH_1}")
    endif()
    set(${name}_choices "")
    if(rest MATCHES ":{([^}]*)}")
      string(REPLACE "," " " ${name}_choices "${CMAKE_MATCH_1}")
    endif()
    set(${name}_value "${value}")
    list(APPEND options ${name})
  elseif(section STREQUAL OPTIONS AND line MATCHES "^   +([^ ].*)$")
    if(NOT ${name}_help)
      set(${name}_help "${CMAKE_MATCH_1}")
    endif()
  endif()
endforeach()
if(NOT options)
  message(FATAL_ERROR "${HELP} lists no options")
endif()

set(function _${PROGRAM})
string(REPLACE "-" "_" function ${function})
set(words "")
set(bash_cases "")
set(zsh "")
set(fish "")
foreach(name IN LISTS options)
  string(APPEND words " --${name}")
  string(REPLACE "'" "’" text "${${name}_help}")
  set(value ${${name}_value})
  set(choices "${${name}_choices}")
  set(is_file FALSE)
  if(value MATCHES "^(FILE|PATH|TEMPLATE)$")
    set(is_file TRUE)
  endif()

  if(choices)
    string(APPEND bash_cases "    --${name}) mapfile -t COMPREPLY < <(compgen -W '${choices}' -- \"$word\"); return ;;\n")
  elseif(is_file)
    string(APPEND bash_cases "    --${name}) mapfile -t COMPREPLY < <(compgen -f -- \"$word\"); return ;;\n")
  elseif(value AND NOT value STREQUAL OPTIONAL)
    string(APPEND bash_cases "    --${name}) return ;;\n")
  endif()

  string(REPLACE ":" "\\:" zsh_text "${text}")
  set(line "  '--${name}[${zsh_text}]")
  set(fish_line "complete -c ${PROGRAM} -l ${name} -d '${text}'")
  if(value STREQUAL OPTIONAL)
    set(line "  '--${name}=-[${zsh_text}]::file:_files")
  elseif(choices)
    string(APPEND line ":${value}:(${choices})")
    string(APPEND fish_line " -x -a '${choices}'")
  elseif(is_file)
    string(APPEND line ":${value}:_files")
    string(APPEND fish_line " -r -F")
  elseif(value)
    string(APPEND line ":${value}: ")
    string(APPEND fish_line " -x")
  endif()
  string(APPEND zsh "${line}' \\\n")
  string(APPEND fish "${fish_line}\n")
endforeach()

if(queues)
  set(bash_rest "compgen -W \"$(lpstat -e 2>/dev/null)\" -- \"$word\"")
  set(zsh_rest "'*:queue:($(lpstat -e 2>/dev/null))'")
  string(PREPEND fish "complete -c ${PROGRAM} -f -a '(lpstat -e 2>/dev/null)' -d 'Queue'\n")
else()
  set(bash_rest "compgen -f -- \"$word\"")
  set(zsh_rest "'*:file:_files'")
endif()

file(WRITE ${FOLDER}/bash/${PROGRAM} "# bash completion for ${PROGRAM}
${function}() {
  local word=\${COMP_WORDS[COMP_CWORD]}
  case \${COMP_WORDS[COMP_CWORD - 1]} in
${bash_cases}  esac
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '${words}' -- \"$word\")
  else
    mapfile -t COMPREPLY < <(${bash_rest})
  fi
}
complete -F ${function} ${PROGRAM}
")
file(WRITE ${FOLDER}/zsh/_${PROGRAM} "#compdef ${PROGRAM}
_arguments \\
${zsh}  ${zsh_rest}
")
file(WRITE ${FOLDER}/fish/${PROGRAM}.fish "${fish}")
