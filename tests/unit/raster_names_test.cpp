#include "debug/raster_names.h"

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using Names = std::map<int, std::string>;

const Names ADVANCES = {
    {CUPS_ADVANCE_NONE, "CUPS_ADVANCE_NONE"}, {CUPS_ADVANCE_FILE, "CUPS_ADVANCE_FILE"},
    {CUPS_ADVANCE_JOB, "CUPS_ADVANCE_JOB"},   {CUPS_ADVANCE_SET, "CUPS_ADVANCE_SET"},
    {CUPS_ADVANCE_PAGE, "CUPS_ADVANCE_PAGE"},
};

const Names BOOLEANS = {
    {CUPS_FALSE, "CUPS_FALSE"},
    {CUPS_TRUE, "CUPS_TRUE"},
};

const Names COLOR_SPACES = {
    {CUPS_CSPACE_W, "CUPS_CSPACE_W"},
    {CUPS_CSPACE_RGB, "CUPS_CSPACE_RGB"},
    {CUPS_CSPACE_RGBA, "CUPS_CSPACE_RGBA"},
    {CUPS_CSPACE_K, "CUPS_CSPACE_K"},
    {CUPS_CSPACE_CMY, "CUPS_CSPACE_CMY"},
    {CUPS_CSPACE_YMC, "CUPS_CSPACE_YMC"},
    {CUPS_CSPACE_CMYK, "CUPS_CSPACE_CMYK"},
    {CUPS_CSPACE_YMCK, "CUPS_CSPACE_YMCK"},
    {CUPS_CSPACE_KCMY, "CUPS_CSPACE_KCMY"},
    {CUPS_CSPACE_KCMYcm, "CUPS_CSPACE_KCMYcm"},
    {CUPS_CSPACE_GMCK, "CUPS_CSPACE_GMCK"},
    {CUPS_CSPACE_GMCS, "CUPS_CSPACE_GMCS"},
    {CUPS_CSPACE_WHITE, "CUPS_CSPACE_WHITE"},
    {CUPS_CSPACE_GOLD, "CUPS_CSPACE_GOLD"},
    {CUPS_CSPACE_SILVER, "CUPS_CSPACE_SILVER"},
    {CUPS_CSPACE_CIEXYZ, "CUPS_CSPACE_CIEXYZ"},
    {CUPS_CSPACE_CIELab, "CUPS_CSPACE_CIELab"},
    {CUPS_CSPACE_RGBW, "CUPS_CSPACE_RGBW"},
    {CUPS_CSPACE_SW, "CUPS_CSPACE_SW"},
    {CUPS_CSPACE_SRGB, "CUPS_CSPACE_SRGB"},
    {CUPS_CSPACE_ADOBERGB, "CUPS_CSPACE_ADOBERGB"},
    {CUPS_CSPACE_ICC1, "CUPS_CSPACE_ICC1"},
    {CUPS_CSPACE_ICC2, "CUPS_CSPACE_ICC2"},
    {CUPS_CSPACE_ICC3, "CUPS_CSPACE_ICC3"},
    {CUPS_CSPACE_ICC4, "CUPS_CSPACE_ICC4"},
    {CUPS_CSPACE_ICC5, "CUPS_CSPACE_ICC5"},
    {CUPS_CSPACE_ICC6, "CUPS_CSPACE_ICC6"},
    {CUPS_CSPACE_ICC7, "CUPS_CSPACE_ICC7"},
    {CUPS_CSPACE_ICC8, "CUPS_CSPACE_ICC8"},
    {CUPS_CSPACE_ICC9, "CUPS_CSPACE_ICC9"},
    {CUPS_CSPACE_ICCA, "CUPS_CSPACE_ICCA"},
    {CUPS_CSPACE_ICCB, "CUPS_CSPACE_ICCB"},
    {CUPS_CSPACE_ICCC, "CUPS_CSPACE_ICCC"},
    {CUPS_CSPACE_ICCD, "CUPS_CSPACE_ICCD"},
    {CUPS_CSPACE_ICCE, "CUPS_CSPACE_ICCE"},
    {CUPS_CSPACE_ICCF, "CUPS_CSPACE_ICCF"},
    {CUPS_CSPACE_DEVICE1, "CUPS_CSPACE_DEVICE1"},
    {CUPS_CSPACE_DEVICE2, "CUPS_CSPACE_DEVICE2"},
    {CUPS_CSPACE_DEVICE3, "CUPS_CSPACE_DEVICE3"},
    {CUPS_CSPACE_DEVICE4, "CUPS_CSPACE_DEVICE4"},
    {CUPS_CSPACE_DEVICE5, "CUPS_CSPACE_DEVICE5"},
    {CUPS_CSPACE_DEVICE6, "CUPS_CSPACE_DEVICE6"},
    {CUPS_CSPACE_DEVICE7, "CUPS_CSPACE_DEVICE7"},
    {CUPS_CSPACE_DEVICE8, "CUPS_CSPACE_DEVICE8"},
    {CUPS_CSPACE_DEVICE9, "CUPS_CSPACE_DEVICE9"},
    {CUPS_CSPACE_DEVICEA, "CUPS_CSPACE_DEVICEA"},
    {CUPS_CSPACE_DEVICEB, "CUPS_CSPACE_DEVICEB"},
    {CUPS_CSPACE_DEVICEC, "CUPS_CSPACE_DEVICEC"},
    {CUPS_CSPACE_DEVICED, "CUPS_CSPACE_DEVICED"},
    {CUPS_CSPACE_DEVICEE, "CUPS_CSPACE_DEVICEE"},
    {CUPS_CSPACE_DEVICEF, "CUPS_CSPACE_DEVICEF"},
};

const Names CUTS = {
    {CUPS_CUT_NONE, "CUPS_CUT_NONE"}, {CUPS_CUT_FILE, "CUPS_CUT_FILE"}, {CUPS_CUT_JOB, "CUPS_CUT_JOB"},
    {CUPS_CUT_SET, "CUPS_CUT_SET"},   {CUPS_CUT_PAGE, "CUPS_CUT_PAGE"},
};

const Names EDGES = {
    {CUPS_EDGE_TOP, "CUPS_EDGE_TOP"},
    {CUPS_EDGE_RIGHT, "CUPS_EDGE_RIGHT"},
    {CUPS_EDGE_BOTTOM, "CUPS_EDGE_BOTTOM"},
    {CUPS_EDGE_LEFT, "CUPS_EDGE_LEFT"},
};

const Names JOGS = {
    {CUPS_JOG_NONE, "CUPS_JOG_NONE"},
    {CUPS_JOG_FILE, "CUPS_JOG_FILE"},
    {CUPS_JOG_JOB, "CUPS_JOG_JOB"},
    {CUPS_JOG_SET, "CUPS_JOG_SET"},
};

const Names ORDERS = {
    {CUPS_ORDER_CHUNKED, "CUPS_ORDER_CHUNKED"},
    {CUPS_ORDER_BANDED, "CUPS_ORDER_BANDED"},
    {CUPS_ORDER_PLANAR, "CUPS_ORDER_PLANAR"},
};

const Names ORIENTATIONS = {
    {CUPS_ORIENT_0, "CUPS_ORIENT_0"},
    {CUPS_ORIENT_90, "CUPS_ORIENT_90"},
    {CUPS_ORIENT_180, "CUPS_ORIENT_180"},
    {CUPS_ORIENT_270, "CUPS_ORIENT_270"},
};

/// The text that an enumeration with these names must give for a value.
std::string expected(const Names& names, const std::string& enumeration, int value) {
  const auto found = names.find(value);
  return found != names.end() ? found->second : enumeration + "(" + std::to_string(value) + ")";
}

template <typename Enumeration>
void expect_names(const Names& names, const std::string& enumeration) {
  std::vector<int> values = {INT_MIN, INT_MAX};
  for (int value = -3; value <= 80; ++value) {
    values.push_back(value);
  }
  for (const int value : values) {
    EXPECT_EQ(to_string(std::bit_cast<Enumeration>(value)), expected(names, enumeration, value));
  }
}

TEST(RasterNames, EveryAdvanceHasItsNameOrNumber) {
  expect_names<cups_adv_e>(ADVANCES, "cups_adv_e");
}

TEST(RasterNames, EveryBooleanHasItsNameOrNumber) {
  expect_names<cups_bool_e>(BOOLEANS, "cups_bool_e");
}

TEST(RasterNames, EveryColorSpaceHasItsNameOrNumber) {
  expect_names<cups_cspace_e>(COLOR_SPACES, "cups_cspace_e");
}

TEST(RasterNames, EveryCutHasItsNameOrNumber) {
  expect_names<cups_cut_e>(CUTS, "cups_cut_e");
}

TEST(RasterNames, EveryEdgeHasItsNameOrNumber) {
  expect_names<cups_edge_e>(EDGES, "cups_edge_e");
}

TEST(RasterNames, EveryJogHasItsNameOrNumber) {
  expect_names<cups_jog_e>(JOGS, "cups_jog_e");
}

TEST(RasterNames, EveryOrderHasItsNameOrNumber) {
  expect_names<cups_order_e>(ORDERS, "cups_order_e");
}

TEST(RasterNames, EveryOrientationHasItsNameOrNumber) {
  expect_names<cups_orient_e>(ORIENTATIONS, "cups_orient_e");
}

TEST(RasterNames, TwoUnnamedValuesOfOneEnumerationShareABuffer) {
  const char* first = to_string(std::bit_cast<cups_adv_e>(7));
  const char* second = to_string(std::bit_cast<cups_adv_e>(-1));
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "cups_adv_e(-1)");
}

TEST(RasterNames, UnnamedValuesOfDifferentEnumerationsDoNotDisturbEachOther) {
  const std::vector<const char*> texts = {
      to_string(std::bit_cast<cups_adv_e>(99)),    to_string(std::bit_cast<cups_bool_e>(99)),
      to_string(std::bit_cast<cups_cspace_e>(99)), to_string(std::bit_cast<cups_cut_e>(99)),
      to_string(std::bit_cast<cups_edge_e>(99)),   to_string(std::bit_cast<cups_jog_e>(99)),
      to_string(std::bit_cast<cups_order_e>(99)),  to_string(std::bit_cast<cups_orient_e>(99)),
  };
  const std::set<std::string> different(texts.begin(), texts.end());
  EXPECT_EQ(different, (std::set<std::string>{"cups_adv_e(99)", "cups_bool_e(99)", "cups_cspace_e(99)",
                                              "cups_cut_e(99)", "cups_edge_e(99)", "cups_jog_e(99)",
                                              "cups_order_e(99)", "cups_orient_e(99)"}));
}

TEST(RasterNames, ANamedValueLeavesTheTextOfAnUnnamedOne) {
  const char* unnamed = to_string(std::bit_cast<cups_jog_e>(4));
  to_string(CUPS_JOG_SET);
  EXPECT_STREQ(unnamed, "cups_jog_e(4)");
}

}  // namespace
