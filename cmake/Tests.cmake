# The tests. Labels: unit, comparison, statistics, soak, abi, consumer, workbench, tool, cluster, python
# (python/CMakeLists.txt) and fuzz-replay (fuzz/CMakeLists.txt). Those with a COST are the longest, and begin first, so
# that no processor waits for them at the end.
enable_testing()
include(GoogleTest)
find_package(GTest REQUIRED)
find_package(Eigen3 REQUIRED)
# Files are read back by astropy, which the interpreter of QUEN_PYTHON_INTERPRETER (Python.cmake) has to have.
add_library(quen_testing STATIC testing/calibration.cpp testing/fits_files.cpp testing/process.cpp
                                testing/python.cpp testing/second_reader.cpp)
target_compile_definitions(quen_testing PUBLIC QUEN_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
                                               QUEN_PYTHON="${QUEN_PYTHON_INTERPRETER}")
target_include_directories(quen_testing PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(quen_testing PUBLIC PkgConfig::cfitsio PkgConfig::log4cplus Microsoft.GSL::GSL GTest::gtest_main
                      PRIVATE quen_warnings)

# What takes the place of functions of the C and C++ libraries is no part of another source.
set_source_files_properties(testing/allocations.cpp testing/faulty_stdio.cpp testing/malloc_calls.cpp
                            PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)

# quen_add_script_test(NAME LABEL SCRIPT ARGUMENT …): a Python script, run in the repository's folder; CTest sees one
# case.
function(quen_add_script_test name label script)
  add_test(NAME ${name} COMMAND ${QUEN_PYTHON_INTERPRETER} ${script} ${ARGN} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(${name} PROPERTIES LABELS ${label})
endfunction()

# quen_add_test(NAME SOURCES … LIBRARIES … [LABEL …]): one executable; CTest sees each of its cases.
function(quen_add_test name)
  cmake_parse_arguments(ARG "" "LABEL" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} quen_testing quen_warnings)
  # The library is optimised as its users have it. A test's own code is compiled more often than it runs.
  target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O1>)
  if(NOT ARG_LABEL)
    set(ARG_LABEL unit)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${ARG_LABEL} TIMEOUT 300)
endfunction()

quen_add_test(
  unit_test
  SOURCES basesim/test/base_simulator_test.cpp
          common/filesystem/test/filesystem_test.cpp
          common/fits/test/fits_file_test.cpp
          common/fits/test/fits_image_test.cpp
          common/fits/test/fits_table_test.cpp
          common/fits/test/header_check_test.cpp
          common/logging/test/logging_test.cpp
          common/random/test/random_test.cpp
          common/random/test/uniform_stream_test.cpp
          common/simd/test/level_test.cpp
          common/statistics/test/quantile_test.cpp
          defs/test/camera_test.cpp
          pim/test/helper_test.cpp
          quen_image_processing/roi/test/roi_test.cpp
          shssim/test/compute_frame_test.cpp
          shssim/test/compute_slopes_test.cpp
          shssim/test/render_frame_test.cpp
          shssim/test/spot_exponential_test.cpp
          shssim/test/spot_test.cpp
          testing/allocations.cpp
  LIBRARIES quen_shssim_static)
target_compile_options(unit_test PRIVATE -ffp-contract=off) # it has some of the kernel compiled anew
quen_add_test(statistics_test LABEL statistics SOURCES shssim/test/noise_statistics_test.cpp
              LIBRARIES quen_shssim_static)
quen_add_test(soak_test LABEL soak SOURCES shssim/test/soak_test.cpp LIBRARIES quen_shssim_static)
quen_add_test(random_fault_test SOURCES common/random/test/random_fault_test.cpp LIBRARIES quen_shssim_static)
quen_add_test(fits_fault_test SOURCES common/fits/test/fits_fault_test.cpp
              LIBRARIES quen_shssim_static ${CMAKE_DL_LIBS})
# CFITSIO reads memory that it has not set, which a sanitizer's allocator fills differently in every run.
if(NOT QUEN_SANITIZE)
  quen_add_test(
    fits_comparison_test
    LABEL comparison
    SOURCES common/fits/test/comparison_test.cpp common/fits/test/plain_fits.cpp fuzz/damage.cpp fuzz/input.cpp
            testing/allocations.cpp
    LIBRARIES quen_shssim_static)
  set_target_properties(fits_comparison_test PROPERTIES ENABLE_EXPORTS ON) # its clock is CFITSIO's
endif()
quen_add_test(fault_test SOURCES shssim/test/faults_test.cpp testing/faulty_stdio.cpp
              LIBRARIES quen_shssim_static ${CMAKE_DL_LIBS})

# --- The centroiding engines, with their internals in reach, on the simulator that hosts link.
quen_add_test(
  centroiders_test
  SOURCES centroiders/test/engines_test.cpp
          centroiders/test/kernels_test.cpp
          centroiders/test/level_of_the_process_test.cpp
          centroiders/test/light_engine_test.cpp
          centroiders/test/maximum_likelihood_kernels_test.cpp
          centroiders/test/maximum_likelihood_test.cpp
          centroiders/test/methods_test.cpp
          centroiders/test/score_test.cpp
          testing/allocations.cpp
  LIBRARIES quen_engines_objects quen_score_objects quen::shssim_lib quen::detector Eigen3::Eigen)

# --- The detector, with its internals in reach.
quen_add_test(
  detector_test
  SOURCES detector/test/detector_test.cpp detector/test/kernels_test.cpp detector/test/samplers_test.cpp
          testing/allocations.cpp
  LIBRARIES quen_detector_objects quen_detector_level_objects)
target_compile_options(detector_test PRIVATE -ffp-contract=off) # it has some of the kernels compiled anew
quen_add_test(detector_statistics_test LABEL statistics SOURCES detector/test/statistics_test.cpp
              LIBRARIES quen_detector_objects quen_detector_level_objects)

# --- The streams, with their internals in reach.
quen_add_test(stream_test SOURCES stream/test/order_of_stores_test.cpp stream/test/reader_test.cpp
                                  stream/test/writer_test.cpp testing/allocations.cpp
              LIBRARIES quen_stream_objects quen_stream_logging_objects)

# --- The shared library as its hosts see it.
quen_add_test(
  host_test
  LABEL abi
  SOURCES abi/test/host_test.cpp abi/test/layout_test.cpp shssim/test/fatal_conditions_test.cpp
  LIBRARIES quen::shssim_lib)
# The host whose weak copies of the standard library's code are most likely to get in the way.
target_compile_options(host_test PRIVATE -O0 -U_FORTIFY_SOURCE)
set_target_properties(host_test PROPERTIES ENABLE_EXPORTS ON)
# A host of the engines alone. The score's layout is told by its header.
quen_add_test(engines_host_test LABEL abi SOURCES abi/test/engines_host_test.cpp abi/test/engines_layout_test.cpp
              LIBRARIES quen::engines)
quen_add_test(detector_host_test LABEL abi SOURCES abi/test/detector_host_test.cpp LIBRARIES quen::detector)
quen_add_test(stream_host_test LABEL abi SOURCES abi/test/stream_host_test.cpp LIBRARIES quen::stream)
# What the tests' own helpers need, but these tests do not, must not be in their processes.
target_link_options(engines_host_test PRIVATE -Wl,--as-needed)
target_link_options(detector_host_test PRIVATE -Wl,--as-needed)
target_link_options(stream_host_test PRIVATE -Wl,--as-needed)
quen_add_test(stand_in_test LABEL abi SOURCES abi/test/stand_in_test.cpp LIBRARIES quen::shssim_lib)
add_test(NAME ExportedSymbols.AreTheListedOnes
         COMMAND abi/test/check_exported_symbols.sh $<TARGET_FILE:quen_shssim_lib> abi/exported_symbols.txt
         WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_test(NAME ExportedSymbols.OfTheCentroidersAreTheListedOnes
         COMMAND abi/test/check_exported_symbols.sh $<TARGET_FILE:quen_centroiders> abi/exported_symbols_centroiders.txt
         WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_test(NAME ExportedSymbols.OfTheEnginesAreTheListedOnes
         COMMAND abi/test/check_exported_symbols.sh $<TARGET_FILE:quen_engines> abi/exported_symbols_engines.txt
         WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_test(NAME ExportedSymbols.OfTheDetectorAreTheListedOnes
         COMMAND abi/test/check_exported_symbols.sh $<TARGET_FILE:quen_detector> abi/exported_symbols_detector.txt
         WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
add_test(NAME ExportedSymbols.OfTheStreamsAreTheListedOnes
         COMMAND abi/test/check_exported_symbols.sh $<TARGET_FILE:quen_stream> abi/exported_symbols_stream.txt
         WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
set_tests_properties(ExportedSymbols.AreTheListedOnes ExportedSymbols.OfTheCentroidersAreTheListedOnes
                     ExportedSymbols.OfTheEnginesAreTheListedOnes ExportedSymbols.OfTheDetectorAreTheListedOnes
                     ExportedSymbols.OfTheStreamsAreTheListedOnes PROPERTIES LABELS abi)
# The engines' types are described with the centroiders, which are linked from the same objects.
if(CMAKE_BUILD_TYPE STREQUAL Debug AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  find_program(QUEN_ABIDIFF abidiff REQUIRED) # Debian's abigail-tools
  add_test(NAME BinaryInterface.IsTheDescribedOne COMMAND abi/test/check_abi.sh $<TARGET_FILE:quen_shssim_lib>
                                                          abi/libquen_shssim_lib.abi
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  add_test(NAME BinaryInterface.OfTheCentroidersIsTheDescribedOne
           COMMAND abi/test/check_abi.sh $<TARGET_FILE:quen_centroiders> abi/libquen_centroiders.abi
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  add_test(NAME BinaryInterface.OfTheDetectorIsTheDescribedOne
           COMMAND abi/test/check_abi.sh $<TARGET_FILE:quen_detector> abi/libquen_detector.abi
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  add_test(NAME BinaryInterface.OfTheStreamsIsTheDescribedOne COMMAND abi/test/check_abi.sh $<TARGET_FILE:quen_stream>
                                                                      abi/libquen_stream.abi
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(BinaryInterface.IsTheDescribedOne BinaryInterface.OfTheCentroidersIsTheDescribedOne
                       BinaryInterface.OfTheDetectorIsTheDescribedOne BinaryInterface.OfTheStreamsIsTheDescribedOne
                       PROPERTIES LABELS abi)
endif()
if(CMAKE_BUILD_TYPE STREQUAL Release)
  add_test(NAME VectorCode.OfTheSimulatorUsesItsLevelsRegisters
           COMMAND testing/check_vector_code.sh $<TARGET_FILE:quen_shssim_lib> DrawSpotAvx512:zmm DrawSpotAvx2:ymm
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  add_test(NAME VectorCode.OfTheCentroidersUsesItsLevelsRegisters
           COMMAND testing/check_vector_code.sh $<TARGET_FILE:quen_centroiders> SumAvx512:zmm SumAvx2:ymm
                   AroundAvx512:zmm AroundAvx2:ymm TileAvx2:ymm CountAboveAvx2:ymm SpotSumsAvx512:zmm SpotSumsAvx2:ymm
                   EqualSumsAvx512:zmm EqualSumsAvx2:ymm
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  add_test(NAME VectorCode.OfTheDetectorUsesItsLevelsRegisters
           COMMAND testing/check_vector_code.sh $<TARGET_FILE:quen_detector>
                   CountPhotonsAvx512:zmm CountPhotonsAvx2:ymm AddReadNoiseAvx512:zmm AddReadNoiseAvx2:ymm
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(VectorCode.OfTheSimulatorUsesItsLevelsRegisters VectorCode.OfTheCentroidersUsesItsLevelsRegisters
                       VectorCode.OfTheDetectorUsesItsLevelsRegisters PROPERTIES LABELS unit)
endif()

# --- The workbench and the host tool.
if(QUEN_BUILD_TOOLS)
  quen_add_test(
    workbench_test
    LABEL workbench
    SOURCES workbench/fits/test/disk_test.cpp
            workbench/fits/test/long_table_test.cpp
            workbench/fits/test/numbers_test.cpp
            workbench/fits/test/plain_text_test.cpp
            workbench/fits/test/staged_file_test.cpp
            workbench/fits/test/table_test.cpp
            workbench/detector/test/description_test.cpp
            workbench/engines/test/engines_test.cpp
            workbench/sensor/test/basis_test.cpp
            workbench/sensor/test/calibration_test.cpp
            workbench/sensor/test/camera_test.cpp
            workbench/sensor/test/files_test.cpp
            workbench/sensor/test/geometry_test.cpp
            workbench/sensor/test/hot_pixels_test.cpp
            workbench/sensor/test/mean_spot_test.cpp
            workbench/sensor/test/sensor_test.cpp
            workbench/sensor/test/zernike_test.cpp
            workbench/loop/test/control_loop_test.cpp
            workbench/loop/test/disturbance_test.cpp
            workbench/loop/test/series_file_test.cpp
            workbench/loop/test/sweep_test.cpp
            workbench/check/test/check_test.cpp
            workbench/pictures/test/calibration_pictures_test.cpp workbench/pictures/test/looks_like.cpp
            workbench/pictures/test/pictures_test.cpp
            testing/malloc_calls.cpp
    LIBRARIES quen_workbench)
  quen_add_test(
    campaign_test
    LABEL workbench
    SOURCES workbench/campaign/test/campaign_test.cpp
            workbench/campaign/test/execution_test.cpp
            workbench/campaign/test/result_files_test.cpp
    LIBRARIES quen_workbench fmt::fmt)
  quen_add_test(live_test LABEL workbench SOURCES workbench/live/test/controller_test.cpp
                                                  workbench/live/test/frame_contents_test.cpp
                                                  workbench/live/test/live_test.cpp LIBRARIES quen_workbench)
  quen_add_test(
    serve_test
    LABEL workbench
    SOURCES workbench/serve/test/faults_test.cpp
            workbench/serve/test/latched_stream_test.cpp
            workbench/serve/test/schedule_test.cpp
            workbench/serve/test/server_test.cpp
            testing/malloc_calls.cpp
    LIBRARIES quen_serve)
  quen_add_test(
    check_planted_test
    LABEL workbench
    SOURCES workbench/check/test/planted.cpp workbench/check/test/planted_generator_test.cpp
            workbench/check/test/planted_mistakes.cpp workbench/check/test/planted_test.cpp
    LIBRARIES quen_workbench fmt::fmt)
  quen_add_test(
    quen_shs_test
    LABEL tool
    SOURCES tools/quen-shs/test/camera_frames_test.cpp
            tools/quen-shs/test/campaign_verb_test.cpp
            tools/quen-shs/test/check_verb_test.cpp
            tools/quen-shs/test/command_line_test.cpp
            tools/quen-shs/test/demo_test.cpp
            tools/quen-shs/test/detector_verb_test.cpp
            tools/quen-shs/test/score_verb_test.cpp
            tools/quen-shs/test/streams_verb_test.cpp
            tools/quen-shs/test/terminal_test.cpp
            tools/quen-shs/test/verbs_test.cpp
    LIBRARIES quen_shs_core)
  quen_add_test(
    quen_shs_fault_test
    LABEL tool
    SOURCES tools/quen-shs/test/faults_test.cpp testing/faulty_stdio.cpp
    LIBRARIES quen_shs_core ${CMAKE_DL_LIBS})
  quen_add_test(
    quen_shs_damage_test
    LABEL tool
    SOURCES tools/quen-shs/test/damage_test.cpp fuzz/damage.cpp fuzz/input.cpp testing/allocations.cpp
    LIBRARIES quen_shs_core)
  foreach(test quen_shs_test quen_shs_fault_test quen_shs_damage_test)
    target_compile_definitions(${test} PRIVATE QUEN_SHS="$<TARGET_FILE:quen-shs>")
    add_dependencies(${test} quen-shs)
  endforeach()
  target_compile_definitions(quen_shs_test PRIVATE QUEN_DEMO="$<TARGET_FILE:quen-demo>")
  add_dependencies(quen_shs_test quen-demo)
endif()

# --- The tool's files, from outside. Without strace, or where it may not trace, what needs it is skipped.
if(QUEN_BUILD_TOOLS)
  foreach(class Names Streams Damaged Traced Kills)
    quen_add_script_test(FilesOfRuns.${class} tool tools/quen-shs/test/files_of_runs.py $<TARGET_FILE:quen-shs>
                       ${class})
    set_tests_properties(FilesOfRuns.${class} PROPERTIES TIMEOUT 600 COST 150)
  endforeach()
  set_tests_properties(FilesOfRuns.Traced PROPERTIES COST 200) # of all tests the longest
endif()

# --- The telemetry that others read, by astropy alone.
if(QUEN_BUILD_TOOLS)
  quen_add_script_test(TelemetryOfLoops.IsReadByOthers tool tools/quen-shs/test/telemetry_of_loops.py
                       $<TARGET_FILE:quen-shs>)
  set_tests_properties(TelemetryOfLoops.IsReadByOthers PROPERTIES TIMEOUT 600)
endif()

# --- Campaigns, from outside.
if(QUEN_BUILD_TOOLS)
  quen_add_script_test(CampaignRuns.AreKilledAndGoOn tool tools/quen-shs/test/campaign_runs.py $<TARGET_FILE:quen-shs>)
  set_tests_properties(CampaignRuns.AreKilledAndGoOn PROPERTIES TIMEOUT 600)
  # Skipped where Slurm is not installed.
  quen_add_script_test(CampaignOnCluster.LosesNothingWithANode cluster
                       tools/quen-shs/test/campaign_on_cluster.py $<TARGET_FILE:quen-shs> scripts/cluster)
  set_tests_properties(CampaignOnCluster.LosesNothingWithANode PROPERTIES TIMEOUT 250 COST 100 SKIP_RETURN_CODE 77)
endif()

# --- A server, from outside.
if(QUEN_BUILD_TOOLS)
  quen_add_script_test(ServedFrames.AreReadByOthers tool tools/quen-shs/test/served_frames.py $<TARGET_FILE:quen-shs>)
  set_tests_properties(ServedFrames.AreReadByOthers PROPERTIES TIMEOUT 600)
endif()
# A sanitized one is too slow to be looked at.
if(QUEN_BUILD_TOOLS AND NOT QUEN_SANITIZE)
  quen_add_script_test(LiveSoak.AClosedLoopGoesOn soak tools/quen-shs/test/live_soak.py $<TARGET_FILE:quen-shs>)
endif()

# --- A server's camera, taken from by Aravis' own client. Skipped where there is no Aravis for Python, or no network
# namespace. Aravis' threads are none that a sanitizer knows.
if(QUEN_BUILD_TOOLS AND QUEN_BUILD_GIGE AND NOT QUEN_SANITIZE)
  quen_add_script_test(GigeFrames.AreTakenByOthers tool tools/quen-shs/test/gige_frames.py $<TARGET_FILE:quen-shs>)
  set_tests_properties(GigeFrames.AreTakenByOthers PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77)
  # Built where somebody asks for it, to measure: gige_frames.py build/dev/gige_rate --measure 500 10
  add_executable(gige_rate EXCLUDE_FROM_ALL workbench/serve/test/gige_rate.cpp)
  target_link_libraries(gige_rate PRIVATE quen_serve fmt::fmt quen_warnings)
endif()

# --- The order of the rooms.
quen_add_script_test(Includes.PointDown unit testing/check_includes.py ${PROJECT_SOURCE_DIR})

# --- The packages' symbols files, names and version are those of the build.
quen_add_script_test(Packaging.AgreesWithTheBuild abi packaging/test/check_debian.py .)

# --- What makes and what checks the documentation site.
quen_add_script_test(Site.IsMadeAndCheckedRight unit docs/test/site_test.py)

# --- The guide, as it stands; it has a chapter on the Python package.
if(QUEN_BUILD_PYTHON AND NOT QUEN_SANITIZE)
  quen_add_script_test(Guide.RunsAsItStands tool docs/test/run_guide.py docs/guide.md ${PROJECT_BINARY_DIR})
  set_tests_properties(Guide.RunsAsItStands PROPERTIES TIMEOUT 600 COST 100
                                                        ENVIRONMENT "PYTHONPATH=${PROJECT_BINARY_DIR}/python")
endif()

# --- The installed package, and the ways to configure it. A sanitized library needs sanitized hosts, which these are
# not.
if(QUEN_BUILD_TOOLS AND NOT QUEN_SANITIZE)
  add_test(NAME Configuring.NeedsTheToolsPackagesForTheToolAlone
           COMMAND cmake/test/check_configuring.sh ${PROJECT_SOURCE_DIR} ${CMAKE_CXX_COMPILER}
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  add_test(NAME Consumer.BuildsAndRunsAgainstTheInstalledTree
           COMMAND examples/test/consume_installed.sh ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR} ${CMAKE_CXX_COMPILER}
                   ${QUEN_PYTHON_INTERPRETER}
           WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
  set_tests_properties(Configuring.NeedsTheToolsPackagesForTheToolAlone
                       Consumer.BuildsAndRunsAgainstTheInstalledTree PROPERTIES LABELS consumer TIMEOUT 300 COST 100)
endif()
