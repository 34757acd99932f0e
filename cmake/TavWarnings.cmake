# Warning and sanitizer flags shared by every target of the tree.
add_library(tav_warnings INTERFACE)
target_compile_options(tav_warnings INTERFACE
  $<$<CXX_COMPILER_ID:GNU,Clang>:-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
    -Wold-style-cast -Wcast-align -Woverloaded-virtual -Wconversion -Wsign-conversion
    -Wnull-dereference -Wdouble-promotion -Wformat=2 -Wimplicit-fallthrough>)
if(TAV_WERROR)
  target_compile_options(tav_warnings INTERFACE -Werror)
endif()

if(TAV_SANITIZE)
  string(REPLACE "," ";" _tav_sans "${TAV_SANITIZE}")
  set(_tav_flags "")
  foreach(_s IN LISTS _tav_sans)
    list(APPEND _tav_flags "-fsanitize=${_s}")
  endforeach()
  list(APPEND _tav_flags -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_compile_options(${_tav_flags})
  add_link_options(${_tav_flags})
endif()
