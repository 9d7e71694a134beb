# The ready-made centroiding engines: optional libraries on top of the interface. The simulator does not need them.
#
#   quen::engines       the engines alone, for a host that measures frames of its own. Needs no simulator.
#   quen::centroiders   the engines, and the score, which has the simulator render what they measure.
#
# Both are linked from the same objects. The second one holds the engines itself instead of needing the first: what it
# exports is what hosts were built with. In a process with both, the one that was loaded first serves.
set(engines_headers
    centroiders/brightest_pixels.hpp
    centroiders/centre_of_gravity.hpp
    centroiders/correlation.hpp
    centroiders/drawn_spot.hpp
    centroiders/gaussian_fit.hpp
    centroiders/light_engine.hpp
    centroiders/maximum_likelihood_fit.hpp
    centroiders/pixel_engine.hpp
    centroiders/pixel_reading.hpp
    centroiders/quad_cell.hpp
    centroiders/weighted_centre_of_gravity.hpp
    centroiders/windowed_centre_of_gravity.hpp
    common/checks/limits.hpp)

add_library(quen_engines_objects OBJECT)
target_sources(
  quen_engines_objects
  PRIVATE centroiders/src/brightest_pixels.cpp
          centroiders/src/brightness.cpp
          centroiders/src/centre_of_gravity.cpp
          centroiders/src/correlate.cpp
          centroiders/src/correlation.cpp
          centroiders/src/gaussian.cpp
          centroiders/src/gaussian_fit.cpp
          centroiders/src/light_engine.cpp
          centroiders/src/maximum_likelihood_fit.cpp
          centroiders/src/moments.cpp
          centroiders/src/pixel_engine.cpp
          centroiders/src/pixel_reader.cpp
          centroiders/src/quad_cell.cpp
          centroiders/src/scoring_step.cpp
          centroiders/src/smoothed_maximum.cpp
          centroiders/src/spot_estimate.cpp
          centroiders/src/spot_moments.cpp
          centroiders/src/weighted_centre_of_gravity.cpp
          centroiders/src/weighted_sums.cpp
          centroiders/src/windowed_centre_of_gravity.cpp
          common/simd/src/best.cpp
          common/simd/src/level.cpp)
quen_configure_objects(quen_engines_objects)
target_link_libraries(quen_engines_objects PUBLIC PkgConfig::log4cplus Microsoft.GSL::GSL)

add_library(quen_score_objects OBJECT centroiders/src/score.cpp)
quen_configure_objects(quen_score_objects)
target_link_libraries(quen_score_objects PUBLIC PkgConfig::cfitsio PkgConfig::log4cplus Microsoft.GSL::GSL)

# The regions that engines are given, and the logger that a wrong one is reported to; the simulator brings its own.
add_library(quen_roi_objects OBJECT common/logging/src/logging.cpp quen_image_processing/roi/src/roi.cpp)
quen_configure_objects(quen_roi_objects)
target_link_libraries(quen_roi_objects PUBLIC PkgConfig::log4cplus)

add_library(quen_engines SHARED)
add_library(quen::engines ALIAS quen_engines)
target_sources(
  quen_engines
  PUBLIC FILE_SET HEADERS
         BASE_DIRS ${PROJECT_SOURCE_DIR}
         FILES ${engines_headers}
               defs/export.hpp
               quen_image_processing/centroiding/centroiding.hpp
               quen_image_processing/roi/roi.hpp
               shssim/spot.hpp)
target_link_libraries(quen_engines PRIVATE $<BUILD_INTERFACE:quen_engines_objects> $<BUILD_INTERFACE:quen_roi_objects>
                                           PkgConfig::log4cplus
                      PUBLIC Microsoft.GSL::GSL)
quen_configure_shared(quen_engines engines)
quen_require_complete(quen_engines)

add_library(quen_centroiders SHARED)
add_library(quen::centroiders ALIAS quen_centroiders)
target_sources(quen_centroiders PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${engines_headers}
                                                                                              centroiders/score.hpp)
target_link_libraries(quen_centroiders PRIVATE $<BUILD_INTERFACE:quen_engines_objects>
                                               $<BUILD_INTERFACE:quen_score_objects>
                      PUBLIC quen_shssim_lib quen_detector)
quen_configure_shared(quen_centroiders centroiders)
set_target_properties(quen_centroiders PROPERTIES INSTALL_RPATH "$ORIGIN") # where the simulator library is
