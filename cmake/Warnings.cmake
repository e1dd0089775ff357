# Private to our own targets, never exported. Results are defined to the bit: no contraction, no fast-math.
add_library(kslib_warnings INTERFACE)
target_compile_options(kslib_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wundef -Wformat=2 -Wformat-security
  -Wcast-qual -Wnull-dereference -Werror -ffp-contract=off
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi -Wold-style-cast>)
if(KSLIB_SANITIZE)
  target_compile_options(kslib_warnings INTERFACE -fsanitize=${KSLIB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    -Wno-null-dereference $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)  # instrumented code makes both see ghosts
  target_link_options(kslib_warnings INTERFACE -fsanitize=${KSLIB_SANITIZE})
endif()
