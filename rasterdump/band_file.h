#pragma once

#include <string>

#include "debug/band_image_capture.h"

/// BandFile is a saved band, or why it could not be saved.
struct BandFile {
  std::string name;   ///< the template expanded
  std::string error;  ///< empty if the band was saved
};

/// Saves a band with save_image_as_raw().
///
/// @param templ  the file's name, see format_string_util().
BandFile save_band(const std::string& templ, const tagLNBandImageParams& band);
