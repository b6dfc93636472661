# A room is a folder with one library of its own. The presets compile it as one file (CMAKE_UNITY_BUILD with
# batches of any size), so names in anonymous namespaces have to differ within a room, wherever it would be cut.
# scripts/tidy reads each file by itself, and so finds includes that are missing.
#
# A room's headers are reached as "room/Header.h", and only by the rooms that link to it: each library
# exports a folder that holds nothing but its own room.

add_library(zelvo_flags INTERFACE)
target_compile_options(zelvo_flags INTERFACE -Wall -Wextra -Wpedantic)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # They warn of the standard library's own string and variant code once it is optimised (GCC bugs
  # 105651 and 105593; the last two for lengths that no string can have).
  target_compile_options(zelvo_flags INTERFACE -Wno-restrict -Wno-maybe-uninitialized
                         -Wno-stringop-overflow -Wno-array-bounds)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # What XCB's and PipeWire's headers ask for: a name that is a keyword, and macros that are expressions.
  target_compile_options(zelvo_flags INTERFACE -Wno-keyword-macro -Wno-gnu-statement-expression)
endif()
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A file that a unity file includes counts as a header for this warning.
  target_compile_options(zelvo_flags INTERFACE -Wno-subobject-linkage)
endif()
# The code waits for networks and people, and half its size is half the memory that it takes for hours.
# What goes over pixels says otherwise for itself (server/screen/x11).
target_compile_options(zelvo_flags INTERFACE $<$<CONFIG:Release>:-Os>
                       -ffunction-sections -fdata-sections)
target_link_options(zelvo_flags INTERFACE -Wl,--gc-sections)
if(ZELVO_WERROR)
  target_compile_options(zelvo_flags INTERFACE -Werror)
endif()
if(ZELVO_SANITIZE)
  target_compile_options(zelvo_flags INTERFACE -fsanitize=address,undefined
                         -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(zelvo_flags INTERFACE -fsanitize=address,undefined)
endif()

# For what only tests; after zelvo_flags.
add_library(zelvo_test_flags INTERFACE)
if(ZELVO_SANITIZE)
  # Checks of each pointer make a third of the time that a test takes to compile, and in its own lines they find
  # what AddressSanitizer finds, too, when the pointer is used. The rooms keep them.
  target_compile_options(zelvo_test_flags INTERFACE -fno-sanitize=null,alignment)
endif()

# Half of the time that a file takes goes into the headers of the standard library and of Qt. They are
# compiled once for all rooms, which holds however the files are cut. Precompiled headers are for one
# set of flags; Qt wants -fPIC and GLib -pthread, so everything has them.
target_compile_options(zelvo_flags INTERFACE -fPIC -pthread)
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache$")
  # Without these it keeps nothing that was compiled with precompiled headers.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_SLOPPINESS=pch_defines,time_macros ${CMAKE_CXX_COMPILER_LAUNCHER})
  target_compile_options(zelvo_flags INTERFACE -fpch-preprocess)
endif()

# What is fed with nonsense tells where it has been, which leads to what was not seen yet, and is optimised: it
# takes up to six times as much in the same time.
set(zelvo_fuzzed_options -O1 -fsanitize=fuzzer-no-link)

# zelvo_headers(NAME LINKS ... HEADERS ...): precompiled headers for zelvo_room and zelvo_test. They are for one
# set of flags, so that fuzzed rooms have their own.
function(zelvo_headers name)
  zelvo_precompile(${name} ${ARGN})
  if(ZELVO_FUZZ)
    zelvo_precompile(${name}_fuzzed ${ARGN})
    target_compile_options(${name}_fuzzed PRIVATE ${zelvo_fuzzed_options})
  endif()
endfunction()

function(zelvo_precompile name)
  cmake_parse_arguments(arg "" "" "LINKS;HEADERS" ${ARGN})
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/${name}.cpp CONTENT "")
  add_library(${name} OBJECT EXCLUDE_FROM_ALL ${CMAKE_BINARY_DIR}/${name}.cpp)
  target_link_libraries(${name} PRIVATE zelvo_flags ${arg_LINKS})
  target_precompile_headers(
    ${name} PRIVATE <algorithm> <charconv> <chrono> <functional> <map> <memory> <optional> <string>
    <string_view> <utility> <vector>
    ${arg_HEADERS})
endfunction()

# zelvo_export(TARGET SCOPE ROOM): lets users of TARGET include the headers of the folder ROOM. Only the
# headers that lie directly in it, so that "platform" does not open "platform/linux".
function(zelvo_export target scope room)
  string(REPLACE "/" "_" name ${room})
  set(root ${CMAKE_BINARY_DIR}/rooms/${name})
  file(MAKE_DIRECTORY ${root}/${room})
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/${room}
       ${PROJECT_SOURCE_DIR}/${room}/*.h)
  foreach(header ${headers})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${room}/${header} ${root}/${room}/${header} SYMBOLIC)
  endforeach()
  target_include_directories(${target} ${scope} ${root})
endfunction()

# zelvo_room(ROOM SOURCES ... LINKS ... PRIVATE_LINKS ... [HEADERS ...] [FUZZED]): the library zelvo_<room>.
# FUZZED where a target of tests/fuzz is led by it.
function(zelvo_room room)
  cmake_parse_arguments(arg "FUZZED" "TARGET;HEADERS" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
  string(REPLACE "/" "_" name ${room})
  set(target zelvo_${name})
  if(arg_TARGET)
    set(target ${arg_TARGET})
  endif()
  if(NOT arg_HEADERS)
    set(arg_HEADERS zelvo_std_headers)
  endif()
  add_library(${target} STATIC ${arg_SOURCES})
  if(arg_FUZZED AND ZELVO_FUZZ)
    string(APPEND arg_HEADERS _fuzzed)
    target_compile_options(${target} PRIVATE ${zelvo_fuzzed_options})
  endif()
  target_precompile_headers(${target} REUSE_FROM ${arg_HEADERS})
  target_link_libraries(${target} PUBLIC ${arg_LINKS} PRIVATE zelvo_flags ${arg_PRIVATE_LINKS})
  zelvo_export(${target} PUBLIC ${room})
endfunction()

# zelvo_test(ROOM LINKS ...): the tests of tests/<room> as one binary and one ctest entry.
function(zelvo_test room)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
  string(REPLACE "/" "_" name ${room})
  if(NOT arg_SOURCES)
    file(GLOB arg_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/${room}/*.cpp)
  endif()
  if(NOT arg_SOURCES)
    return()
  endif()
  add_executable(test_${name} ${arg_SOURCES})
  target_link_libraries(test_${name} PRIVATE zelvo_flags zelvo_test_flags ${arg_LINKS} GTest::gtest_main)
  target_precompile_headers(test_${name} REUSE_FROM zelvo_test_headers)
  add_test(NAME ${name} COMMAND test_${name})
  # By which scripts/test finds it.
  set_tests_properties(${name} PROPERTIES LABELS ${room})
endfunction()

# zelvo_programs(FOLDER ...): adds each folder that is there.
function(zelvo_programs)
  foreach(folder ${ARGN})
    if(EXISTS ${PROJECT_SOURCE_DIR}/${folder}/CMakeLists.txt)
      add_subdirectory(${PROJECT_SOURCE_DIR}/${folder} ${PROJECT_BINARY_DIR}/${folder})
    endif()
  endforeach()
endfunction()
