// The pixel work of one run.
#pragma once

#include <span>

#include "convert/pixels/image_reader.h"
#include "convert/pixels/plan.h"

namespace keldo::convert {

/// Makes the thumbnails of all steps from an image and writes each to the descriptor of the same
/// place, which is emptied first; nothing is written to it before its thumbnail is complete.
/// `attached_icc` is the content of the plan's ICC profile, empty for none. Throws ImageError.
void MakeThumbnails(const std::vector<Step>& steps, ImageReader& image, Bytes attached_icc,
                    std::span<const int> outputs);

}  // namespace keldo::convert
