// SPDX-License-Identifier: Apache-2.0
// The names of the values of the CUPS raster enumerations.
#pragma once

#include <cups/raster.h>

// Each function returns a value's name as in <cups/raster.h>, for example "CUPS_ADVANCE_PAGE". The result is
// never null and must not be freed.
//
// For a value without a name, the result is the enumeration's name with the number, for example
// "cups_adv_e(7)" or "cups_adv_e(-1)". It is in a static buffer of its own for each function, so it is valid
// until that function is called with another such value, and must be used by one thread only.

const char* to_string(cups_adv_e value);
const char* to_string(cups_bool_e value);
const char* to_string(cups_cspace_e value);
const char* to_string(cups_cut_e value);
const char* to_string(cups_edge_e value);
const char* to_string(cups_jog_e value);
const char* to_string(cups_order_e value);
const char* to_string(cups_orient_e value);
