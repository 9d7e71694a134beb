# Warnings for our own targets; errors where QUEN_WERROR is on. -Wrestrict is off: GCC 12 reports the standard library's
# own concatenation of strings (GCC bug 105651).
add_library(quen_warnings INTERFACE)
target_compile_options(
  quen_warnings
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wsign-conversion
            -Wdouble-promotion
            -Wold-style-cast
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wcast-align
            -Wformat=2
            $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond
            -Wlogical-op
            -Wuseless-cast
            -Wno-restrict>
            $<$<CXX_COMPILER_ID:Clang>:-Wreserved-identifier
            -Wreserved-macro-identifier>
            $<$<BOOL:${QUEN_WERROR}>:-Werror>)
