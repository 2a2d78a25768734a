# Flags that every target of this project is built with.
add_library(fscanner_flags INTERFACE)
target_compile_options(fscanner_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  # g++ 12 sees overlapping copies in `"text" + std::string` where there are none.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_definitions(fscanner_flags INTERFACE _FORTIFY_SOURCE=2)
  target_compile_options(fscanner_flags INTERFACE -fstack-protector-strong)
endif()
if(FSCANNER_SANITIZE)
  target_compile_options(fscanner_flags INTERFACE
    -fsanitize=${FSCANNER_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(fscanner_flags INTERFACE -fsanitize=${FSCANNER_SANITIZE})
endif()
if(FSCANNER_FUZZ)
  target_compile_options(fscanner_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
