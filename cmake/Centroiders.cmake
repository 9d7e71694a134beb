# The ready-made centroiding engines: a second library, for hosts that want one. The simulator does not need it.
set(centroiders_headers
    centroiders/brightest_pixels.hpp
    centroiders/centre_of_gravity.hpp
    centroiders/correlation.hpp
    centroiders/drawn_spot.hpp
    centroiders/gaussian_fit.hpp
    centroiders/pixel_engine.hpp
    centroiders/quad_cell.hpp
    centroiders/score.hpp
    centroiders/weighted_centre_of_gravity.hpp
    centroiders/windowed_centre_of_gravity.hpp)

add_library(quen_centroiders_objects OBJECT)
target_sources(
  quen_centroiders_objects
  PRIVATE centroiders/src/brightest_pixels.cpp
          centroiders/src/brightness.cpp
          centroiders/src/centre_of_gravity.cpp
          centroiders/src/correlate.cpp
          centroiders/src/correlation.cpp
          centroiders/src/gaussian.cpp
          centroiders/src/gaussian_fit.cpp
          centroiders/src/moments.cpp
          centroiders/src/pixel_engine.cpp
          centroiders/src/quad_cell.cpp
          centroiders/src/score.cpp
          centroiders/src/weighted_centre_of_gravity.cpp
          centroiders/src/weighted_sums.cpp
          centroiders/src/windowed_centre_of_gravity.cpp
          common/simd/src/level.cpp)
quen_configure_objects(quen_centroiders_objects)

add_library(quen_centroiders SHARED)
add_library(quen::centroiders ALIAS quen_centroiders)
target_sources(quen_centroiders PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${centroiders_headers})
target_link_libraries(quen_centroiders PRIVATE $<BUILD_INTERFACE:quen_centroiders_objects> PUBLIC quen_shssim_lib)
quen_configure_shared(quen_centroiders centroiders)
set_target_properties(quen_centroiders PROPERTIES INSTALL_RPATH "$ORIGIN") # where the simulator library is
