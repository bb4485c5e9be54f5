# The warnings of every target of ours. -Werror is not among them: it comes from a preset, so
# that a packager's newer compiler does not break the build.
add_library(vantrell_warnings INTERFACE)
target_compile_options(vantrell_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Wold-style-cast -Wundef
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
