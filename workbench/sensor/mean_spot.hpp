#pragma once

#include "workbench/engines/pixel_maps.hpp"
#include "workbench/engines/spot_template.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/frame_file.hpp"

namespace quen::workbench {

/// The mean of all spots of frames, with height 1, as a template for a correlation.
///
/// Frames are corrected for what is known of the camera; pixels that do not count are left out. A correlation with the
/// drawn spot finds each spot's centre; around it the frame, without its pedestal, is resampled
/// by cubic convolution (Keys 1981, a = −1/2), and each pixel of the template is the mean over the spots whose regions
/// reach there, 0 if none does. What the centre of gravity of this mean is off the middle pixel is added to all
/// centres, and the mean made anew, twice: whatever the shape of a spot, its place is that of its centre of gravity.
/// The resampling changes a spot of the simulator's size by less than 0.4 % of its height.
///
/// Frames of noise alone have places that look like spots, and their mean would be one: the spots' contrast
/// (spot_contrast.hpp) must be 2 at least, which 100 electrons with a read noise of 3 about have.
///
/// The template's side is that of the drawn spot's. Brighter spots weigh more. Spots of sub-apertures that are not
/// used, without light, or displaced by kSlopeLimit or more do not count.
/// @param maps  of the camera, as far as they are known
/// @throws std::runtime_error  there is no frame, they are not of 840 × 816 pixels, one cannot be read, or there is no
///                             spot in them that stands out of the noise
/// @throws Interrupted         a signal has come
SpotTemplate MeanSpot(const FrameReader& frames, const PixelMaps& maps, Camera& camera);

}  // namespace quen::workbench
