# The workbench and the host tool, and what they need beyond the library. With AUTO they are left out where something of
# that is missing.
quen_choice(QUEN_BUILD_TOOLS "Build the host tool quen-shs")

if(QUEN_BUILD_TOOLS)
  find_package(CLI11 QUIET)
  find_package(Eigen3 QUIET)
  find_package(fmt QUIET)
  find_package(nlohmann_json QUIET)
  find_package(tomlplusplus QUIET)
  find_package(ZLIB QUIET)
  pkg_check_modules(cairo QUIET IMPORTED_TARGET cairo cairo-ft)

  set(needed CLI11 Eigen3 fmt nlohmann_json tomlplusplus ZLIB cairo)
  set(debian_packages libcli11-dev libeigen3-dev libfmt-dev nlohmann-json3-dev libtomlplusplus-dev zlib1g-dev
      libcairo2-dev)
  foreach(name package IN ZIP_LISTS needed debian_packages)
    if(NOT ${name}_FOUND)
      list(APPEND missing ${name})
      list(APPEND to_install ${package})
    endif()
  endforeach()

  if(missing)
    list(JOIN missing ", " missing)
    list(JOIN to_install " " to_install)
    set(found_out "the host tool quen-shs needs ${missing}; on Debian: apt install ${to_install}")
    if(NOT QUEN_BUILD_TOOLS STREQUAL "AUTO")
      message(FATAL_ERROR "QUEN_BUILD_TOOLS is ${QUEN_BUILD_TOOLS}, but ${found_out}")
    endif()
    message(STATUS "Without quen-shs: ${found_out}")
    set(QUEN_BUILD_TOOLS OFF)
  endif()
endif()

# A sensor as a camera on the network. Where Aravis is not found, serve says that it has none.
quen_choice(QUEN_BUILD_GIGE "Let the host tool be a GigE Vision camera")
if(QUEN_BUILD_TOOLS AND QUEN_BUILD_GIGE)
  pkg_check_modules(aravis QUIET IMPORTED_TARGET aravis-0.8)
  if(NOT aravis_FOUND)
    if(NOT QUEN_BUILD_GIGE STREQUAL "AUTO")
      message(FATAL_ERROR "QUEN_BUILD_GIGE is ${QUEN_BUILD_GIGE}, but a GigE Vision camera needs Aravis; on Debian: apt "
                          "install libaravis-dev libusb-1.0-0-dev")
    endif()
    set(QUEN_BUILD_GIGE OFF)
  endif()
endif()

if(QUEN_BUILD_TOOLS)
  add_subdirectory(workbench)
  add_subdirectory(tools/quen-shs)
endif()
