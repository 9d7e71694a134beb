# What the objects of the libraries are compiled with.
function(quen_configure_objects target)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON
                                             CXX_VISIBILITY_PRESET hidden
                                             VISIBILITY_INLINES_HIDDEN ON)
  # Bad arguments end the process through these assertions, in every build type.
  target_compile_definitions(${target} PRIVATE _GLIBCXX_ASSERTIONS)
  # Results are the formula's, bit for bit.
  target_compile_options(${target} PRIVATE -fno-fast-math -ffp-contract=off)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:quen_warnings>)
endfunction()

# How the shared libraries are linked, and its name in the package.
function(quen_configure_shared target name)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_options(${target} PRIVATE LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
  set_target_properties(
    ${target}
    PROPERTIES EXPORT_NAME ${name}
               VERSION ${PROJECT_VERSION}
               SOVERSION ${QUEN_SOVERSION}
               LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
endfunction()

# For libraries that need no simulator: they do not link where something of them does.
function(quen_require_complete target)
  if(NOT QUEN_SANITIZE) # whose runtime is the host's
    target_link_options(${target} PRIVATE LINKER:-z,defs)
  endif()
endfunction()

# The simulator library: one set of objects for the shared library and for a static one that only tests use.
set(public_headers
    basesim/base_simulator.hpp
    common/filesystem/filesystem.hpp
    common/fits/fits.hpp
    common/logging/logging.hpp
    common/random/random.hpp
    defs/camera.hpp
    defs/export.hpp
    pim/helper.hpp
    quen_image_processing/centroiding/centroiding.hpp
    quen_image_processing/roi/roi.hpp
    shssim/shs_simulator.hpp
    shssim/spot.hpp)

add_library(quen_shssim_objects OBJECT)
target_sources(
  quen_shssim_objects
  PRIVATE basesim/src/base_simulator.cpp
          common/filesystem/src/filesystem.cpp
          common/fits/src/data_unit.cpp
          common/fits/src/fits_file.cpp
          common/fits/src/fits_image.cpp
          common/fits/src/fits_table.cpp
          common/fits/src/header_check.cpp
          common/logging/src/logging.cpp
          common/random/src/random.cpp
          common/random/src/uniform_stream.cpp
          common/simd/src/best.cpp
          common/simd/src/level.cpp
          pim/src/helper.cpp
          quen_image_processing/roi/src/roi.cpp
          shssim/src/render_frame.cpp
          shssim/src/shs_simulator.cpp
          shssim/src/slope_file.cpp
          shssim/src/spot_kernel.cpp)
quen_configure_objects(quen_shssim_objects)
target_link_libraries(quen_shssim_objects PUBLIC PkgConfig::cfitsio PkgConfig::log4cplus Microsoft.GSL::GSL)
# The compiler may evaluate both sides of a condition, which vectorising needs. Values do not change.
set_source_files_properties(shssim/src/spot_kernel.cpp common/random/src/uniform_stream.cpp
                            PROPERTIES COMPILE_OPTIONS -fno-trapping-math)
# The workbench has a file finder of its own and the benchmarks a level, which take the place of these where the library
# is linked statically.
set_source_files_properties(common/filesystem/src/filesystem.cpp common/simd/src/best.cpp pim/src/helper.cpp
                            PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)

add_library(quen_shssim_lib SHARED)
add_library(quen::shssim_lib ALIAS quen_shssim_lib)
target_sources(quen_shssim_lib PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${public_headers})
target_link_libraries(quen_shssim_lib PRIVATE $<BUILD_INTERFACE:quen_shssim_objects>
                      PUBLIC PkgConfig::cfitsio PkgConfig::log4cplus Microsoft.GSL::GSL)
quen_configure_shared(quen_shssim_lib shssim_lib)

if(QUEN_BUILD_TESTS OR QUEN_BUILD_BENCHMARKS OR QUEN_BUILD_FUZZERS)
  # With internals in reach, which the shared library hides.
  add_library(quen_shssim_static STATIC)
  target_link_libraries(quen_shssim_static PUBLIC quen_shssim_objects)
endif()
