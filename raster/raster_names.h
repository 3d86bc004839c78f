// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cups/raster.h>

// Names of the CUPS raster enumerations' values as <cups/raster.h> spells them, for example
// "CUPS_ADVANCE_PAGE". Never null, never to be freed.
//
// A value that the header does not name gives the enumeration's own name with the number, for example
// "cups_adv_e(7)" or "cups_adv_e(-1)", in a buffer of that overload's own: such a text is good until the same
// overload's next one. For one thread only.

const char* to_string(cups_adv_e value);
const char* to_string(cups_bool_e value);
const char* to_string(cups_cspace_e value);
const char* to_string(cups_cut_e value);
const char* to_string(cups_edge_e value);
const char* to_string(cups_jog_e value);
const char* to_string(cups_order_e value);
const char* to_string(cups_orient_e value);
