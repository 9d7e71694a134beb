# QUEN_SANITIZE: a comma-separated list for -fsanitize, applied to everything that is built. Any report is fatal.
if(QUEN_SANITIZE)
  add_compile_options(-fsanitize=${QUEN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUEN_SANITIZE})
  add_compile_definitions(QUEN_SANITIZED) # each compiler says so in another way
  # With a sanitizer's code in between, g++ no longer sees that the standard library's regular expressions, for one, set
  # what they read.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  # The address sanitizer's runtime as a library, as g++ has it anyway: so it can be preloaded into an interpreter.
  set(address_runtime libasan.so)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(address_runtime libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so)
  endif()
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${address_runtime}
                  OUTPUT_VARIABLE QUEN_ADDRESS_RUNTIME OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND QUEN_SANITIZE MATCHES "address" AND NOT QUEN_BUILD_FUZZERS)
    get_filename_component(folder ${QUEN_ADDRESS_RUNTIME} DIRECTORY)
    add_link_options(-shared-libsan LINKER:-rpath,${folder})
  endif()
endif()
