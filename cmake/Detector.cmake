# The detector: an optional library, a stage after the simulator. Needs no simulator.
# Debian's librandom123-dev: headers alone, and in no header of ours.
find_path(QUEN_RANDOM123 Random123/philox.h REQUIRED)

add_library(quen_detector_objects OBJECT)
target_sources(
  quen_detector_objects
  PRIVATE detector/src/count_kernel.cpp
          detector/src/detector.cpp
          detector/src/elementary.cpp
          detector/src/exposure.cpp
          detector/src/gamma.cpp
          detector/src/maps.cpp
          detector/src/photon_kernel.cpp
          detector/src/poisson.cpp
          detector/src/read_kernel.cpp)
quen_configure_objects(quen_detector_objects)
target_include_directories(quen_detector_objects SYSTEM PUBLIC $<BUILD_INTERFACE:${QUEN_RANDOM123}>)
target_link_libraries(quen_detector_objects PUBLIC PkgConfig::log4cplus Microsoft.GSL::GSL)

# The level of the process, and the logger that is told of a wrong wish for one; the simulator brings its own.
add_library(quen_detector_level_objects OBJECT common/logging/src/logging.cpp common/simd/src/best.cpp
                                               common/simd/src/level.cpp)
quen_configure_objects(quen_detector_level_objects)
target_link_libraries(quen_detector_level_objects PUBLIC PkgConfig::log4cplus)

add_library(quen_detector SHARED)
add_library(quen::detector ALIAS quen_detector)
target_sources(quen_detector PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES common/checks/limits.hpp
                                    defs/export.hpp detector/detector.hpp detector/maps.hpp)
target_link_libraries(
  quen_detector PRIVATE $<BUILD_INTERFACE:quen_detector_objects> $<BUILD_INTERFACE:quen_detector_level_objects>
                        PkgConfig::log4cplus
  PUBLIC Microsoft.GSL::GSL)
quen_configure_shared(quen_detector detector)
quen_require_complete(quen_detector)
