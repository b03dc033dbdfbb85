# Strict warnings for our own targets only: link nivogx_warnings privately.
add_library(nivogx_warnings INTERFACE)
target_compile_options(nivogx_warnings INTERFACE
  $<$<CXX_COMPILER_ID:GNU,Clang>:-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast>)
# Qt: no implicit ASCII casts, no Qt keyword macros.
target_compile_definitions(nivogx_warnings INTERFACE
  QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS
  QT_NO_URL_CAST_FROM_STRING QT_NO_FOREACH)
