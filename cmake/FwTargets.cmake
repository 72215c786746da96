# Settings for all targets of this project: language, warnings, sanitizers, include root. A folder's own
# CMakeLists.txt contains only what is specific to it.

add_library(fw_options INTERFACE)
target_compile_features(fw_options INTERFACE cxx_std_20)
target_include_directories(fw_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(fw_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  $<$<BOOL:${FW_WARNINGS_AS_ERRORS}>:-Werror>)
target_compile_definitions(fw_options INTERFACE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII)

if(FW_SANITIZERS)
  target_compile_options(fw_options INTERFACE
    -fsanitize=${FW_SANITIZERS} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(fw_options INTERFACE -fsanitize=${FW_SANITIZERS})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ looks for these after it has added the sanitizers' code, and then reports false ones. Builds
    # without sanitizers still report them.
    target_compile_options(fw_options INTERFACE
      -Wno-maybe-uninitialized -Wno-stringop-overflow -Wno-stringop-overread -Wno-array-bounds)
  endif()
endif()
# The sources of a target are compiled as one, since most of the time goes into the headers that they
# share. Names in anonymous namespaces must then differ within a target. The preset libcxx still
# compiles each file of what ships by itself, and so finds a missing include.
option(FW_UNITY "Compile the sources of each target together" OFF)
if(FW_UNITY AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ would take the anonymous namespace of an included source for one in a header.
  target_compile_options(fw_options INTERFACE -Wno-subobject-linkage)
endif()

if(FW_FUZZ OR FW_COVERAGE)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "FW_FUZZ and FW_COVERAGE need clang")
  endif()
  target_link_options(fw_options INTERFACE
    $<$<BOOL:${FW_FUZZ}>:-fsanitize=fuzzer-no-link>
    $<$<BOOL:${FW_COVERAGE}>:-fprofile-instr-generate>)
endif()
if(FW_COMPILE_ONLY)
  set(CMAKE_CXX_LINK_EXECUTABLE "\"${CMAKE_COMMAND}\" -E true")
endif()

# Everything that ships to customers and vendors.
add_custom_target(shipped)

# fw_set_up(TARGET SEPARATE): the settings that libraries and programs share.
function(fw_set_up name separate)
  set_target_properties(${name} PROPERTIES AUTOMOC ON AUTOUIC ON)
  if(FW_UNITY AND NOT separate)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
  endif()
  file(RELATIVE_PATH folder "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
  if(folder MATCHES "^(tests|simulator|benchmarks|fuzz)")
    return()
  endif()
  add_dependencies(shipped ${name})
  # The coverage of the libraries that it links guides the fuzzer.
  if(FW_FUZZ)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
  if(FW_COVERAGE)
    target_compile_options(${name} PRIVATE -fprofile-instr-generate -fcoverage-mapping)
  endif()
endfunction()

# fw_add_library(NAME SOURCES ... [PUBLIC targets...] [PRIVATE targets...] [SEPARATE])
# PUBLIC: targets that the headers need; PRIVATE: targets that only the sources need. SEPARATE compiles
# each source by itself in every build.
function(fw_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "SEPARATE" "" "SOURCES;PUBLIC;PRIVATE")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC fw_options ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
  fw_set_up(${name} ${arg_SEPARATE})
  file(RELATIVE_PATH folder "${PROJECT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}")
  if(FW_SANITIZERS AND NOT folder MATCHES "^tests")
    # Sanitized code is slow. The tests themselves run once and take less time without optimisation.
    target_compile_options(${name} PRIVATE -O1)
  endif()
endfunction()

# fw_add_executable(NAME SOURCES ... [LINK targets...] [SEPARATE])
function(fw_add_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "SEPARATE" "" "SOURCES;LINK")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE fw_options ${arg_LINK})
  fw_set_up(${name} ${arg_SEPARATE})
endfunction()
