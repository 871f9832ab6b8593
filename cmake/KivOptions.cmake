# Compiler settings of every target of this project: kiv_target_options(target).

find_program(KIV_CCACHE ccache)
if(KIV_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${KIV_CCACHE})
  if(KIV_PCH)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${KIV_CCACHE})
  endif()
endif()

if(KIV_SANITIZE)
  add_compile_options(-fsanitize=${KIV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KIV_SANITIZE})
  # g++ 12 sees uninitialized members in instrumented standard headers (std::function, std::regex).
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

if(KIV_FUZZ_ENGINE)
  add_compile_options(-fsanitize=fuzzer-no-link)  # the engine is guided by the branches of the library
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

function(kiv_target_options target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual
    -Wformat=2 -Werror
    -ffp-contract=off) # results must not depend on the target's fused operations
  if(WIN32)
    target_compile_definitions(${target} PRIVATE UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN _WIN32_WINNT=0x0A00)
  endif()
endfunction()

# Where KIV_PCH is on: the standard headers of a library with many sources are compiled once.
function(kiv_precompile target)
  if(KIV_PCH)
    target_precompile_headers(${target} PRIVATE
      <algorithm> <array> <cstdint> <cstring> <functional> <map> <memory> <mutex> <set> <span> <string> <utility> <vector>)
  endif()
endfunction()

# Sources that read a command line: the parser's headers take twice as long with optimisation, four times under sanitizers.
function(kiv_parses_command_line)
  set_source_files_properties(${ARGV} PROPERTIES COMPILE_OPTIONS -O0 SKIP_PRECOMPILE_HEADERS ON)
endfunction()
