# Builds one help page: copies PAGE to OUT with every include marker
#
#   <!--#include file="NAME" -->
#
# replaced by the file NAME of the FRAGMENTS folder (the blocks several
# pages share, such as the 3D effects' scene settings), its last line end
# dropped so the page keeps its lines. NAME is a plain file name. A marker
# that names no fragment, that is written any other way, or that a fragment
# itself holds fails the build naming the page and its line; the page is
# written beside OUT and renamed into place only when whole, so a failed
# build never leaves a page with a marker in it.
#
# Run: cmake -DPAGE=<source page> -DFRAGMENTS=<folder> -DOUT=<built page> -P nimbo_help_page.cmake
cmake_minimum_required(VERSION 3.25)
if(NOT PAGE OR NOT FRAGMENTS OR NOT OUT)
  message(FATAL_ERROR "usage: cmake -DPAGE=<page> -DFRAGMENTS=<folder> -DOUT=<built page> -P nimbo_help_page.cmake")
endif()

set(open_marker "<!--#include")
file(READ "${PAGE}" rest)
set(page_text "")
set(line 1)
while(TRUE)
  string(FIND "${rest}" "${open_marker}" at)
  if(at EQUAL -1)
    break()
  endif()
  string(SUBSTRING "${rest}" 0 ${at} before)
  string(APPEND page_text "${before}")
  string(REGEX MATCHALL "\n" line_ends "${before}")
  list(LENGTH line_ends count)
  math(EXPR line "${line} + ${count}")
  string(SUBSTRING "${rest}" ${at} -1 rest)
  string(FIND "${rest}" "-->" close)
  set(marker "")
  if(NOT close EQUAL -1)
    math(EXPR close "${close} + 3")
    string(SUBSTRING "${rest}" 0 ${close} marker)
    string(SUBSTRING "${rest}" ${close} -1 rest)
  endif()
  if(NOT marker MATCHES "^<!--#include file=\"([A-Za-z0-9_][A-Za-z0-9_.-]*)\" -->$")
    message(FATAL_ERROR "${PAGE}:${line}: an include marker must read <!--#include file=\"NAME\" --> "
                        "with NAME a file of ${FRAGMENTS}")
  endif()
  set(name "${CMAKE_MATCH_1}")
  if(NOT EXISTS "${FRAGMENTS}/${name}" OR IS_DIRECTORY "${FRAGMENTS}/${name}")
    message(FATAL_ERROR "${PAGE}:${line}: includes \"${name}\", which is no fragment in ${FRAGMENTS}")
  endif()
  file(READ "${FRAGMENTS}/${name}" fragment)
  string(FIND "${fragment}" "${open_marker}" nested)
  if(NOT nested EQUAL -1)
    message(FATAL_ERROR "${PAGE}:${line}: the fragment ${FRAGMENTS}/${name} holds an include marker itself; "
                        "fragments are included whole, one level deep")
  endif()
  string(REGEX REPLACE "\r?\n$" "" fragment "${fragment}")
  string(APPEND page_text "${fragment}")
endwhile()
string(APPEND page_text "${rest}")

get_filename_component(out_folder "${OUT}" DIRECTORY)
file(MAKE_DIRECTORY "${out_folder}")
file(WRITE "${OUT}.part" "${page_text}")
file(RENAME "${OUT}.part" "${OUT}")
