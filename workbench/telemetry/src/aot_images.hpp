#pragma once

/// @file
/// What our own telemetry calls its rows and its images.

namespace quen::workbench::aot {

inline constexpr const char* kTimeUid = "FRAMES";
inline constexpr const char* kTelescopeUid = "SIMULATED PUPIL";
inline constexpr const char* kSourceUid = "SIMULATED SOURCE";
inline constexpr const char* kDetectorUid = "SIMULATED DETECTOR";
inline constexpr const char* kSensorUid = "SIMULATED SENSOR";
inline constexpr const char* kCorrectorUid = "SIMULATED CORRECTOR";
inline constexpr const char* kLoopUid = "LOOP";

inline constexpr const char* kMeasurements = "MEASUREMENTS";
inline constexpr const char* kMask = "SUBAPERTURE_MASK";
inline constexpr const char* kCommands = "COMMANDS";
inline constexpr const char* kFilterNumerator = "TIME_FILTER_NUM";
inline constexpr const char* kFilterDenominator = "TIME_FILTER_DEN";
inline constexpr const char* kCoefficients = "MODAL_COEFFICIENTS";
inline constexpr const char* kControlMatrix = "MEASUREMENTS_TO_MODES";
inline constexpr const char* kModesToMeasurements = "MODES_TO_MEASUREMENTS";
inline constexpr const char* kFrames = "PIXEL_INTENSITIES";
/// Which no table refers to: the convention has no place for the truth.
inline constexpr const char* kDisturbance = "DISTURBANCE";

}  // namespace quen::workbench::aot
