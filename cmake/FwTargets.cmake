# How every target of this project is built: language, warnings, sanitizers, include root. A folder's
# own CMakeLists.txt says only what is particular to it.

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
    # g++ looks for these after the sanitizers' own code is in, and then finds what is not there. The
    # builds without sanitizers still look for them.
    target_compile_options(fw_options INTERFACE
      -Wno-maybe-uninitialized -Wno-stringop-overflow -Wno-stringop-overread -Wno-array-bounds)
  endif()
endif()
if(FW_COVERAGE)
  target_compile_options(fw_options INTERFACE --coverage)
  target_link_options(fw_options INTERFACE --coverage)
endif()

# fw_add_library(NAME SOURCES ... [PUBLIC targets...] [PRIVATE targets...])
# PUBLIC is what the headers need, PRIVATE what only the sources need.
function(fw_add_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;PUBLIC;PRIVATE")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC fw_options ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
  set_target_properties(${name} PROPERTIES AUTOMOC ON AUTOUIC ON)
  if(FW_SANITIZERS)
    # Sanitized code is slow; the tests themselves run once and are quicker to compile without.
    target_compile_options(${name} PRIVATE -O1)
  endif()
endfunction()

# fw_add_executable(NAME SOURCES ... [LINK targets...])
function(fw_add_executable name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINK")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE fw_options ${arg_LINK})
  set_target_properties(${name} PROPERTIES AUTOMOC ON)
endfunction()
