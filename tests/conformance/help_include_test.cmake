# The help build's include step (cmake/nimbo_help_page.cmake) on pages made
# here: a marker is replaced by its block with the page's lines kept and
# every byte carried over; a marker naming no block, one written another
# way, one leaving the blocks' folder and a block holding a marker itself
# each fail naming the page, its line and the block, and leave no page.
#
# Run: cmake -DSCRIPT=<nimbo_help_page.cmake> -DWORK=<scratch folder> -P help_include_test.cmake
cmake_minimum_required(VERSION 3.25)
if(NOT SCRIPT OR NOT WORK)
  message(FATAL_ERROR "usage: cmake -DSCRIPT=<nimbo_help_page.cmake> -DWORK=<folder> -P help_include_test.cmake")
endif()

file(REMOVE_RECURSE ${WORK})
set(blocks ${WORK}/blocks)
file(MAKE_DIRECTORY ${blocks})
# Bytes a CMake script could mangle: list separators, backslashes, entities,
# brackets, and UTF-8.
file(WRITE ${blocks}/rows.htm "<tr><td>a;b</td><td>nimbo one\\3D Effect\\X</td></tr>\n<tr><td>&amp; [x] \${x} − …</td></tr>\n")
file(WRITE ${blocks}/nested.htm "<p>x</p>\n<!--#include file=\"rows.htm\" -->\n")

function(expect_equal what actual expected)
  if(NOT actual STREQUAL expected)
    message(SEND_ERROR "${what}:\n--- got\n${actual}\n--- expected\n${expected}")
  endif()
endfunction()

# Builds `text` as page NAME.htm; sets `result`, `error` and `built` (the
# page written, or "(none)") in the caller.
function(build_page name text)
  file(WRITE ${WORK}/${name}.htm "${text}")
  set(out ${WORK}/out/${name}.htm)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -DPAGE=${WORK}/${name}.htm -DFRAGMENTS=${blocks} -DOUT=${out} -P ${SCRIPT}
    RESULT_VARIABLE code ERROR_VARIABLE stderr OUTPUT_QUIET)
  set(built "(none)")
  if(EXISTS ${out})
    file(READ ${out} built)
  endif()
  # CMake wraps the lines of a message; the check reads it as one line.
  string(REGEX REPLACE "[ \t\n]+" " " stderr "${stderr}")
  set(result ${code} PARENT_SCOPE)
  set(error "${stderr}" PARENT_SCOPE)
  set(built "${built}" PARENT_SCOPE)
endfunction()

# A page with the block twice, lines around it kept.
build_page(good "<table>\n<!--#include file=\"rows.htm\" -->\n<tr><td>own</td></tr>\n<!--#include file=\"rows.htm\" -->\n</table>\n")
expect_equal("exit code of a good page" "${result}" "0")
file(READ ${blocks}/rows.htm rows)
string(REGEX REPLACE "\n$" "" rows "${rows}")
expect_equal("the expanded page" "${built}" "<table>\n${rows}\n<tr><td>own</td></tr>\n${rows}\n</table>\n")
if(EXISTS ${WORK}/out/good.htm.part)
  message(SEND_ERROR "a scratch file was left beside the page")
endif()

# A page without markers comes out as it went in.
build_page(plain "<p>a;b \\ c</p>\n")
expect_equal("a page without markers" "${built}" "<p>a;b \\ c</p>\n")

# Each way a marker can be wrong: the page, its line and why, and no page.
foreach(case
    "missing|<p>one</p>\n<p>two</p>\n<!--#include file=\"nowhere.htm\" -->\n|missing.htm:3: includes \"nowhere.htm\", which is no fragment"
    "malformed|<!--#include virtual=\"rows.htm\" -->\n|malformed.htm:1: an include marker must read"
    "unclosed|<p>x</p>\n<!--#include file=\"rows.htm\"\n|unclosed.htm:2: an include marker must read"
    "outside|<!--#include file=\"../good.htm\" -->\n|outside.htm:1: an include marker must read"
    "nested|<!--#include file=\"nested.htm\" -->\n|nested.htm:1: the fragment .*nested.htm holds an include marker")
  string(REPLACE "|" ";" parts "${case}")
  list(GET parts 0 name)
  list(GET parts 1 text)
  list(GET parts 2 message)
  string(REPLACE "\\n" "\n" text "${text}")
  build_page(${name} "${text}")
  if(result EQUAL 0)
    message(SEND_ERROR "${name}: the build of the page succeeded")
  endif()
  if(NOT error MATCHES "${message}")
    message(SEND_ERROR "${name}: the error does not say \"${message}\":\n${error}")
  endif()
  expect_equal("${name}: the page written" "${built}" "(none)")
endforeach()
