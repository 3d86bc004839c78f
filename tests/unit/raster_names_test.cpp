// SPDX-License-Identifier: Apache-2.0
#include "raster/raster_names.h"

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace {

using Names = std::map<int, std::string>;

struct Case {
  const char* enumeration;
  std::string (*name_of)(int value);
  Names names;
};

void PrintTo(const Case& the_case, std::ostream* out) {
  *out << the_case.enumeration;
}

template <typename Enumeration>
Case names_of(const char* enumeration, const Names& names) {
  return {enumeration, [](int value) { return std::string(to_string(std::bit_cast<Enumeration>(value))); },
          names};
}

class Enumeration : public testing::TestWithParam<Case> {};

TEST_P(Enumeration, HasANameOrANumberForEveryValue) {
  std::vector<int> values = {INT_MIN, INT_MAX};
  for (int value = -3; value <= 80; ++value) {
    values.push_back(value);
  }
  for (const int value : values) {
    const auto found = GetParam().names.find(value);
    std::string expected = GetParam().enumeration;
    expected += '(';
    expected += std::to_string(value);
    expected += ')';
    EXPECT_EQ(GetParam().name_of(value), found != GetParam().names.end() ? found->second : expected);
  }
}

INSTANTIATE_TEST_SUITE_P(
    RasterNames, Enumeration,
    testing::Values(names_of<cups_adv_e>("cups_adv_e",
                                         {
                                             {CUPS_ADVANCE_NONE, "CUPS_ADVANCE_NONE"},
                                             {CUPS_ADVANCE_FILE, "CUPS_ADVANCE_FILE"},
                                             {CUPS_ADVANCE_JOB, "CUPS_ADVANCE_JOB"},
                                             {CUPS_ADVANCE_SET, "CUPS_ADVANCE_SET"},
                                             {CUPS_ADVANCE_PAGE, "CUPS_ADVANCE_PAGE"},
                                         }),
                    names_of<cups_bool_e>("cups_bool_e",
                                          {
                                              {CUPS_FALSE, "CUPS_FALSE"},
                                              {CUPS_TRUE, "CUPS_TRUE"},
                                          }),
                    names_of<cups_cspace_e>("cups_cspace_e",
                                            {
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
                                            }),
                    names_of<cups_cut_e>("cups_cut_e",
                                         {
                                             {CUPS_CUT_NONE, "CUPS_CUT_NONE"},
                                             {CUPS_CUT_FILE, "CUPS_CUT_FILE"},
                                             {CUPS_CUT_JOB, "CUPS_CUT_JOB"},
                                             {CUPS_CUT_SET, "CUPS_CUT_SET"},
                                             {CUPS_CUT_PAGE, "CUPS_CUT_PAGE"},
                                         }),
                    names_of<cups_edge_e>("cups_edge_e",
                                          {
                                              {CUPS_EDGE_TOP, "CUPS_EDGE_TOP"},
                                              {CUPS_EDGE_RIGHT, "CUPS_EDGE_RIGHT"},
                                              {CUPS_EDGE_BOTTOM, "CUPS_EDGE_BOTTOM"},
                                              {CUPS_EDGE_LEFT, "CUPS_EDGE_LEFT"},
                                          }),
                    names_of<cups_jog_e>("cups_jog_e",
                                         {
                                             {CUPS_JOG_NONE, "CUPS_JOG_NONE"},
                                             {CUPS_JOG_FILE, "CUPS_JOG_FILE"},
                                             {CUPS_JOG_JOB, "CUPS_JOG_JOB"},
                                             {CUPS_JOG_SET, "CUPS_JOG_SET"},
                                         }),
                    names_of<cups_order_e>("cups_order_e",
                                           {
                                               {CUPS_ORDER_CHUNKED, "CUPS_ORDER_CHUNKED"},
                                               {CUPS_ORDER_BANDED, "CUPS_ORDER_BANDED"},
                                               {CUPS_ORDER_PLANAR, "CUPS_ORDER_PLANAR"},
                                           }),
                    names_of<cups_orient_e>("cups_orient_e",
                                            {
                                                {CUPS_ORIENT_0, "CUPS_ORIENT_0"},
                                                {CUPS_ORIENT_90, "CUPS_ORIENT_90"},
                                                {CUPS_ORIENT_180, "CUPS_ORIENT_180"},
                                                {CUPS_ORIENT_270, "CUPS_ORIENT_270"},
                                            })),
    [](const auto& the_case) { return the_case.param.enumeration; });

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
