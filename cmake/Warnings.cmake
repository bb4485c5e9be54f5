# The warnings of all targets of this project. -Werror comes from the presets instead, so that the
# warnings of a newer compiler do not break a packager's build.
add_library(vantrell_warnings INTERFACE)
target_compile_options(vantrell_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Wundef -Wdate-time
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
