// SPDX-License-Identifier: Apache-2.0
// The page header dump lists the fields of a raster page header.
#pragma once

#include <cups/raster.h>

/// Writes the fields of a raster page header to standard error, one per line. There are 43 lines with the
/// headings. Numbers are printed as signed, enumerations by name. On purpose, the lines have no log prefix,
/// and ImagingBoundingBox has only its left and bottom edges. Strings need no terminator.
///
/// @param header  not null; not modified.
void dump(const cups_page_header_t* header);
