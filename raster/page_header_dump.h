// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/raster.h>

/// Writes every field of a raster page header to standard error, one line a field, 43 lines in all with
/// their headings; of ImagingBoundingBox left and bottom only. Numbers are printed signed, enumerations by
/// name. The lines have no log prefix, on purpose. The strings need no terminator.
///
/// @param header  not null; read only.
void dump(const cups_page_header_t* header);
