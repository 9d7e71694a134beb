# QUEN_SANITIZE: a comma-separated list for -fsanitize, applied to everything that is built. Any report is fatal.
if(QUEN_SANITIZE)
  add_compile_options(-fsanitize=${QUEN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUEN_SANITIZE})
endif()
