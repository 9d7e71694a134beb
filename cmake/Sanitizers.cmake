# QUEN_SANITIZE: a comma-separated list for -fsanitize, applied to everything that is built. Any report is fatal.
if(QUEN_SANITIZE)
  add_compile_options(-fsanitize=${QUEN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUEN_SANITIZE})
  # With a sanitizer's code in between, g++ no longer sees that the standard library's regular expressions, for one, set
  # what they read.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
