// SPDX-License-Identifier: Apache-2.0
// Descriptions of a stream and of all fields of a page header, as text and as JSON.
#pragma once

#include <cups/raster.h>

#include <cstdint>
#include <string>

#include "raster/raster_stream.h"

/// Returns a description of a stream, for example "CUPS raster version 3, uncompressed, little-endian".
std::string describe(const StreamKind& kind);

/// Returns the fields that dump() omits, one per line in the same format: the whole bounding box and the
/// fields of the version 2 header. The integers of a PWG stream have the names of that format.
std::string list_other_fields(const cups_page_header2_t& header, const StreamKind& kind);

/// Returns one line of JSON: "page", "stream", and all fields by their names in <cups/raster.h>. It contains
/// only printable ASCII characters.
std::string header_as_json(const cups_page_header2_t& header, const StreamKind& kind, std::uint64_t page);
