#pragma once

#include <string>

#include "raster/band_image_capture.h"

/// BandFile is a saved band, or why it could not be saved.
struct BandFile {
  std::string name;   ///< the template expanded
  std::string error;  ///< empty if the band was saved
};

/// Saves a band with save_image_as_raw(), but not over the input, nor to a device, pipe or socket.
///
/// @param templ  the file's name, see format_string_util().
/// @param input  the descriptor that the band was read from.
BandFile save_band(const std::string& templ, const tagLNBandImageParams& band, int input);
