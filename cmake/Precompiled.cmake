# Headers that are parsed once for many sources, which takes a third off a build. Without it each source is seen to include
# what it uses: so in the clang preset, whose compile commands are also the linters'.
option(QUEN_PRECOMPILE "Precompile the heaviest headers" ON)

# quen_precompile(TARGET HEADERS…)
function(quen_precompile target)
  if(QUEN_PRECOMPILE)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()
