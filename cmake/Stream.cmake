# Shared-memory image streams: an optional library. Needs no simulator.
add_library(quen_stream_objects OBJECT)
target_sources(quen_stream_objects PRIVATE stream/src/claim.cpp stream/src/keywords.cpp
                                           stream/src/living_readers.cpp stream/src/names.cpp stream/src/parts.cpp
                                           stream/src/reader.cpp stream/src/shared_file.cpp stream/src/writer.cpp)
quen_configure_objects(quen_stream_objects)
target_link_libraries(quen_stream_objects PUBLIC PkgConfig::log4cplus Microsoft.GSL::GSL)

# The logger that is told of a folder that cannot be opened; the simulator brings its own.
add_library(quen_stream_logging_objects OBJECT common/logging/src/logging.cpp)
quen_configure_objects(quen_stream_logging_objects)
target_link_libraries(quen_stream_logging_objects PUBLIC PkgConfig::log4cplus)

add_library(quen_stream SHARED)
add_library(quen::stream ALIAS quen_stream)
target_sources(quen_stream PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES
                                  defs/export.hpp stream/keyword.hpp stream/layout.hpp stream/names.hpp
                                  stream/reader.hpp stream/writer.hpp)
target_link_libraries(
  quen_stream PRIVATE $<BUILD_INTERFACE:quen_stream_objects> $<BUILD_INTERFACE:quen_stream_logging_objects>
                      PkgConfig::log4cplus
  PUBLIC Microsoft.GSL::GSL)
quen_configure_shared(quen_stream stream)
quen_require_complete(quen_stream)
