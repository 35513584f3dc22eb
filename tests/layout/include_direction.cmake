# Checks that every #include "..." in the tree points the way the layers
# allow, and fails naming each one that does not:
#
#   sdk <- framework <- package core <- shared, render3d <- effects <- package
#   random <- core; random <- formula <- effects, render3d
#   the engine knows only the sdk; the host only the sdk, the framework,
#   formula (the `nimbo formula` checker) and, of render3d, only the .3ds
#   reader's header (`nimbo scene`); formula knows only random
#   the frei0r bridge is a host: sdk, framework, host runtime and media, never
#   the package's internals
#
# A rule may also name one public header of a layer ("render3d/c3ds_scene.h"):
# that header alone, not the rest of its layer.
#
# A quoted include is either a layer's public header ("core/effect_base.h":
# the first folder names the layer) or a bare name that must be a file of the
# including file's own folder (an effect's kernels, the engine's sources).
# A folder's tests/ see the headers of the folder they test (and of its src/).
# Nothing reaches another folder by a relative path.
#
# Run: cmake -DROOT=<source tree> -P include_direction.cmake
cmake_minimum_required(VERSION 3.25)
if(NOT ROOT)
  message(FATAL_ERROR "usage: cmake -DROOT=<source tree> -P include_direction.cmake")
endif()

# Which layers' public headers each part of the tree may include, by the
# first matching path prefix.
set(rules
  "sdk/|orrery"
  "framework/|orrery framework"
  "engine/tests/|orrery nb3d test_screen.h"
  "engine/|orrery nb3d"
  "package/random/|random"
  "package/formula/|formula random"
  "package/core/tests/|orrery framework nb3d core test_host.h test_screen.h"
  "package/core/|orrery framework nb3d core random"
  "package/shared/|orrery framework nb3d core shared"
  "package/render3d/tests/|orrery framework nb3d core shared formula render3d test_host.h test_screen.h bin_path.h"
  "package/render3d/|orrery framework nb3d core shared formula render3d"
  "package/effects/|orrery framework nb3d core shared formula render3d test_host.h test_screen.h bin_path.h"
  "package/|orrery framework core"
  "host/tests/fixture_package|orrery framework core"
  "host/tests/|orrery framework formula runtime media cli render3d/c3ds_scene.h"
  "host/cli/|orrery framework formula runtime media cli render3d/c3ds_scene.h"
  "host/|orrery framework formula runtime media render3d/c3ds_scene.h"
  "frei0r/|orrery framework runtime media"
  "tests/support/|orrery framework core test_host.h test_screen.h"
  "tests/|orrery framework core test_host.h test_screen.h"
  "bench/|orrery framework nb3d core shared formula render3d runtime media EFFECTS c3ds_files.h"
  "fuzz/|orrery framework core formula random nb3d render3d EFFECTS")
set(layers orrery framework nb3d core shared formula random render3d runtime media cli)

file(GLOB_RECURSE sources RELATIVE ${ROOT}
  ${ROOT}/sdk/*.[ch]* ${ROOT}/framework/*.[ch]* ${ROOT}/engine/*.[ch]* ${ROOT}/package/*.[ch]*
  ${ROOT}/host/*.[ch]* ${ROOT}/frei0r/*.[ch]* ${ROOT}/tests/*.[ch]* ${ROOT}/bench/*.[ch]* ${ROOT}/fuzz/*.[ch]*)
list(FILTER sources INCLUDE REGEX "\\.(h|cpp)$")
list(FILTER sources EXCLUDE REGEX "^tests/layout/")

set(wrong 0)
foreach(source ${sources})
  set(allowed "")
  foreach(rule ${rules})
    string(REPLACE "|" ";" parts "${rule}")
    list(GET parts 0 prefix)
    string(FIND "${source}" "${prefix}" at)
    if(at EQUAL 0)
      list(GET parts 1 allowed)
      string(REPLACE " " ";" allowed "${allowed}")
      break()
    endif()
  endforeach()
  get_filename_component(folder ${ROOT}/${source} DIRECTORY)
  file(STRINGS ${ROOT}/${source} lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
  foreach(line ${lines})
    string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]*)\".*" "\\1" included "${line}")
    set(why "")
    if(included IN_LIST allowed AND included MATCHES "/")
      # one header of a layer this part may use
    elseif(included MATCHES "\\.\\.")
      set(why "reaches another folder by a relative path")
    elseif(included MATCHES "/")
      string(REGEX REPLACE "/.*" "" layer "${included}")
      if(NOT layer IN_LIST layers)
        set(why "'${layer}/' is no layer's public include folder")
      elseif(NOT layer IN_LIST allowed)
        set(why "includes the '${layer}' layer against the direction of the layers")
      endif()
    elseif(included IN_LIST allowed)
      # a test support header this part may use
    elseif(EXISTS ${folder}/${included})
      # its own folder
    elseif(folder MATCHES "/tests$" AND (EXISTS ${folder}/../${included} OR EXISTS ${folder}/../src/${included}))
      # a folder's tests see the code they test
    else()
      if("EFFECTS" IN_LIST allowed)
        file(GLOB kernel ${ROOT}/package/effects/*/${included})
        if(NOT kernel)
          set(why "names no header of its own folder or of an effect")
        endif()
      else()
        set(why "names no header of its own folder")
      endif()
    endif()
    if(why)
      message("${source}: \"${included}\" ${why}")
      math(EXPR wrong "${wrong} + 1")
    endif()
  endforeach()
endforeach()

if(wrong GREATER 0)
  message(FATAL_ERROR "${wrong} include(s) cross the layers the wrong way")
endif()
list(LENGTH sources count)
message("include direction: ${count} files, every include points the way the layers allow")
