// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/raster.h>

#include <cstdint>
#include <string>

#include "raster/raster_stream.h"

/// Describes a stream: "CUPS raster version 3, uncompressed, little-endian".
std::string describe(const StreamKind& kind);

/// Lists what dump() leaves out, one field per line in the same form: the whole bounding box, and the fields
/// that only the version 2 header has. In a PWG stream, integers are named as that format does.
std::string list_other_fields(const cups_page_header2_t& header, const StreamKind& kind);

/// Makes one line of JSON with all fields under their names in <cups/raster.h>, and before them "page" and
/// "stream". It holds printable ASCII only.
std::string header_as_json(const cups_page_header2_t& header, const StreamKind& kind, std::uint64_t page);
