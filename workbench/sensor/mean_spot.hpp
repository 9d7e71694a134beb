#pragma once

#include "workbench/engines/spot_template.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/frame_file.hpp"

namespace quen::workbench {

/// The mean of all spots of frames, with height 1, as a template for a correlation.
///
/// A correlation with the drawn spot finds each spot's centre; around it the frame, without its pedestal, is resampled
/// by cubic convolution (Keys 1981, a = −1/2), and each pixel of the template is the mean over the spots whose regions
/// reach there, 0 if none does. What the centre of gravity of this mean is off the middle pixel is added to all
/// centres, and the mean made anew, twice: whatever the shape of a spot, its place is that of its centre of gravity.
/// The resampling changes a spot of the simulator's size by less than 0.4 % of its height.
///
/// Spots that are not used, without light or further from their reference than kSlopeLimit do not count.
/// @throws std::runtime_error  there is no frame, they are not of 840 × 816 pixels, one cannot be read, or there is no
///                             spot in them
/// @throws Interrupted         a signal has come
SpotTemplate MeanSpot(const FrameReader& frames, Camera& camera);

}  // namespace quen::workbench
