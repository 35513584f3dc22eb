# The two declarations every folder of the tree uses: a test program of one
# folder, and an effect.

# nimbo_tests(<name> SOURCES <files...> [LIBS <targets...>] [DEPENDS <targets...>])
#
# A GoogleTest program <name> from the folder's test files. It knows where
# the build puts the package, the programs and the sources; DEPENDS are
# targets it needs built before it runs (the package, the engine, the help).
function(nimbo_tests name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS;DEPENDS" ${ARGN})
  if(NOT NIMBO_TESTS)
    return()
  endif()
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE
    NIMBO_PLUGINS_DIR="${NIMBO_PLUGINS_DIR}" NIMBO_BIN_DIR="${NIMBO_BIN_DIR}"
    NIMBO_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  if(T_DEPENDS)
    add_dependencies(${name} ${T_DEPENDS})
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()

# nimbo_effect(<Name> SOURCES <files...> [TESTS <files...>] [HELP <page>])
#
# One effect folder: the effect and its kernels become the static library
# effect_<Name>, whose public include folder is the effect's own folder (its
# kernels' headers are what its tests and benchmarks reach); the effect sees
# the package core, the shared code and the 3D support, nothing of another
# effect. HELP is the page path the effect's help button names
# ("helpfile/Effects/Filter/LowQ/LowQ.htm"); the page itself is the folder's
# <Name>.htm and is installed under that path in the help folder (its
# include markers expanded, see docs/CMakeLists.txt), with the
# folder's <Name>.png (the picture the page shows) beside it. TESTS
# become the program <Name>_tests, run against the whole package.
#
# The package links every effect; the order a host sees them in is fixed in
# package/effect_list.cpp, never by the order of these calls.
function(nimbo_effect name)
  cmake_parse_arguments(E "" "HELP" "SOURCES;TESTS" ${ARGN})
  set(target effect_${name})
  add_library(${target} STATIC ${E_SOURCES})
  target_include_directories(${target} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${target} PUBLIC nimbo_render3d nimbo_shared nimbo_formula nimbo_core)
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  set_property(GLOBAL APPEND PROPERTY NIMBO_EFFECT_TARGETS ${target})
  if(E_HELP)
    set_property(GLOBAL APPEND PROPERTY NIMBO_HELP_PAGES "${CMAKE_CURRENT_SOURCE_DIR}/${name}.htm|${E_HELP}")
    # The page's picture of the effect at work (scripts/refresh_help_pictures
    # takes it from `nimbo demo`), installed beside the page.
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${name}.png)
      get_filename_component(help_folder ${E_HELP} DIRECTORY)
      set_property(GLOBAL APPEND PROPERTY NIMBO_HELP_PAGES "${CMAKE_CURRENT_SOURCE_DIR}/${name}.png|${help_folder}/${name}.png")
    endif()
  endif()
  if(E_TESTS)
    set(depends nimbo_one)
    if(NIMBO_ENGINE)
      list(APPEND depends nb3D)
    endif()
    nimbo_tests(${name}_tests SOURCES ${E_TESTS} LIBS ${target} nimbo_test_support DEPENDS ${depends})
  endif()
endfunction()
