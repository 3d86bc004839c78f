// SPDX-License-Identifier: Apache-2.0
#include "raster/raster_names.h"

#include <array>
#include <cstdio>
#include <span>

namespace {

// The names by value; null for a gap in the enumeration.

constexpr std::array ADVANCES = {
    "CUPS_ADVANCE_NONE", "CUPS_ADVANCE_FILE", "CUPS_ADVANCE_JOB", "CUPS_ADVANCE_SET", "CUPS_ADVANCE_PAGE",
};

constexpr std::array BOOLEANS = {"CUPS_FALSE", "CUPS_TRUE"};

constexpr std::array<const char*, 63> COLOR_SPACES = {
    "CUPS_CSPACE_W",
    "CUPS_CSPACE_RGB",
    "CUPS_CSPACE_RGBA",
    "CUPS_CSPACE_K",
    "CUPS_CSPACE_CMY",
    "CUPS_CSPACE_YMC",
    "CUPS_CSPACE_CMYK",
    "CUPS_CSPACE_YMCK",
    "CUPS_CSPACE_KCMY",
    "CUPS_CSPACE_KCMYcm",
    "CUPS_CSPACE_GMCK",
    "CUPS_CSPACE_GMCS",
    "CUPS_CSPACE_WHITE",
    "CUPS_CSPACE_GOLD",
    "CUPS_CSPACE_SILVER",
    "CUPS_CSPACE_CIEXYZ",
    "CUPS_CSPACE_CIELab",
    "CUPS_CSPACE_RGBW",
    "CUPS_CSPACE_SW",
    "CUPS_CSPACE_SRGB",
    "CUPS_CSPACE_ADOBERGB",
    // 21 to 31
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    // from 32
    "CUPS_CSPACE_ICC1",
    "CUPS_CSPACE_ICC2",
    "CUPS_CSPACE_ICC3",
    "CUPS_CSPACE_ICC4",
    "CUPS_CSPACE_ICC5",
    "CUPS_CSPACE_ICC6",
    "CUPS_CSPACE_ICC7",
    "CUPS_CSPACE_ICC8",
    "CUPS_CSPACE_ICC9",
    "CUPS_CSPACE_ICCA",
    "CUPS_CSPACE_ICCB",
    "CUPS_CSPACE_ICCC",
    "CUPS_CSPACE_ICCD",
    "CUPS_CSPACE_ICCE",
    "CUPS_CSPACE_ICCF",
    // 47
    nullptr,
    // from 48
    "CUPS_CSPACE_DEVICE1",
    "CUPS_CSPACE_DEVICE2",
    "CUPS_CSPACE_DEVICE3",
    "CUPS_CSPACE_DEVICE4",
    "CUPS_CSPACE_DEVICE5",
    "CUPS_CSPACE_DEVICE6",
    "CUPS_CSPACE_DEVICE7",
    "CUPS_CSPACE_DEVICE8",
    "CUPS_CSPACE_DEVICE9",
    "CUPS_CSPACE_DEVICEA",
    "CUPS_CSPACE_DEVICEB",
    "CUPS_CSPACE_DEVICEC",
    "CUPS_CSPACE_DEVICED",
    "CUPS_CSPACE_DEVICEE",
    "CUPS_CSPACE_DEVICEF",
};

constexpr std::array CUTS = {
    "CUPS_CUT_NONE", "CUPS_CUT_FILE", "CUPS_CUT_JOB", "CUPS_CUT_SET", "CUPS_CUT_PAGE",
};

constexpr std::array EDGES = {
    "CUPS_EDGE_TOP",
    "CUPS_EDGE_RIGHT",
    "CUPS_EDGE_BOTTOM",
    "CUPS_EDGE_LEFT",
};

constexpr std::array JOGS = {"CUPS_JOG_NONE", "CUPS_JOG_FILE", "CUPS_JOG_JOB", "CUPS_JOG_SET"};

constexpr std::array ORDERS = {"CUPS_ORDER_CHUNKED", "CUPS_ORDER_BANDED", "CUPS_ORDER_PLANAR"};

constexpr std::array ORIENTATIONS = {
    "CUPS_ORIENT_0",
    "CUPS_ORIENT_90",
    "CUPS_ORIENT_180",
    "CUPS_ORIENT_270",
};

/// Each overload instantiates this once, so each has its own buffer.
template <typename Enumeration>
const char* name_of(Enumeration value, std::span<const char* const> names, const char* enumeration) {
  // The longest text, "cups_cspace_e(-2147483648)", has 27 bytes with its terminator.
  static std::array<char, 27> no_name;
  const auto index = static_cast<unsigned>(value);
  if (index < names.size() && names[index] != nullptr) {
    return names[index];
  }
  sprintf(no_name.data(), "%s(%d)", enumeration, static_cast<int>(index));
  return no_name.data();
}

}  // namespace

const char* to_string(cups_adv_e value) {
  return name_of(value, ADVANCES, "cups_adv_e");
}

const char* to_string(cups_bool_e value) {
  return name_of(value, BOOLEANS, "cups_bool_e");
}

const char* to_string(cups_cspace_e value) {
  return name_of(value, COLOR_SPACES, "cups_cspace_e");
}

const char* to_string(cups_cut_e value) {
  return name_of(value, CUTS, "cups_cut_e");
}

const char* to_string(cups_edge_e value) {
  return name_of(value, EDGES, "cups_edge_e");
}

const char* to_string(cups_jog_e value) {
  return name_of(value, JOGS, "cups_jog_e");
}

const char* to_string(cups_order_e value) {
  return name_of(value, ORDERS, "cups_order_e");
}

const char* to_string(cups_orient_e value) {
  return name_of(value, ORIENTATIONS, "cups_orient_e");
}
