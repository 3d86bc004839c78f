// SPDX-License-Identifier: Apache-2.0
#include "raster/full_header.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <span>

#include "raster/raster_names.h"

namespace {

using Json = nlohmann::ordered_json;

/// The names that PWG raster gives the elements of cupsInteger; null for unused elements.
constexpr std::array<const char*, 16> PWG_INTEGERS = {
    "TotalPageCount",
    "CrossFeedTransform",
    "FeedTransform",
    "ImageBoxLeft",
    "ImageBoxTop",
    "ImageBoxRight",
    "ImageBoxBottom",
    "AlternatePrimary",
    "PrintQuality",
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    "VendorIdentifier",
    "VendorLength",
};

/// Returns the shortest text that represents this number exactly.
std::string shortest(float value) {
  std::array<char, 32> text{};
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

template <std::size_t N>
std::string text_of(const char (&field)[N]) {
  return {field, strnlen(field, N)};
}

std::string text_of(unsigned field) {
  return std::to_string(static_cast<int>(field));
}

std::string text_of(float field) {
  return shortest(field);
}

template <typename Number, std::size_t N>
std::string text_of(const Number (&field)[N]) {
  std::string text;
  for (const Number number : field) {
    text += text.empty() ? "(" : ",";
    text += text_of(number);
  }
  return text + ")";
}

template <typename Field>
std::string line(const std::string& name, const Field& field, const std::string& meaning) {
  std::string text = "__";
  return text.append(name)
      .append("=")
      .append(text_of(field))
      .append("        /* ")
      .append(meaning)
      .append(" */\n");
}

std::string place(const char* name, std::size_t index) {
  return std::string(name) + "[" + std::to_string(index) + "]";
}

template <std::size_t N>
Json json_of(const char (&field)[N]) {
  return text_of(field);
}

Json json_of(unsigned field) {
  return field;
}

/// Returns the number without the extra digits of its conversion to double.
Json json_of(float field) {
  return std::strtod(shortest(field).c_str(), nullptr);
}

Json json_of(cups_bool_t field) {
  const auto value = static_cast<unsigned>(field);
  return value > 1 ? Json(value) : Json(value == 1);
}

template <typename Enumeration>
Json json_of(Enumeration field) requires std::is_enum_v<Enumeration> {
  return to_string(field);
}

template <typename Field, std::size_t N>
Json json_of(const Field (&field)[N]) {
  Json array = Json::array();
  for (const auto& element : field) {
    array.push_back(json_of(element));
  }
  return array;
}

}  // namespace

std::string describe(const StreamKind& kind) {
  return std::string(kind.format) + " raster" +
         (kind.version != 0 ? " version " + std::to_string(kind.version) : "") +
         (kind.compressed ? ", compressed" : ", uncompressed") +
         (kind.big_endian ? ", big-endian" : ", little-endian");
}

std::string list_other_fields(const cups_page_header2_t& header, const StreamKind& kind) {
  std::string all = "=== cups_page_header2_t ===\n";
  all += line("ImagingBoundingBox", header.ImagingBoundingBox,
              "Pixel region that is painted (points, left, bottom, right, top)");
  all += line("cupsNumColors", header.cupsNumColors, "Number of colors");
  all += line("cupsBorderlessScalingFactor", header.cupsBorderlessScalingFactor,
              "Scaling that was applied to page data");
  all += line("cupsPageSize", header.cupsPageSize, "Width and length of page in points, before scaling");
  all += line("cupsImagingBBox", header.cupsImagingBBox,
              "Region that is painted, before scaling (points, left, bottom, right, top)");
  const bool pwg = std::strcmp(kind.format, "PWG") == 0;
  for (std::size_t i = 0; i < std::size(header.cupsInteger); ++i) {
    all += line(place("cupsInteger", i), header.cupsInteger[i],
                pwg && PWG_INTEGERS.at(i) != nullptr ? PWG_INTEGERS.at(i) : "Integer of the driver");
  }
  for (std::size_t i = 0; i < std::size(header.cupsReal); ++i) {
    all += line(place("cupsReal", i), header.cupsReal[i], "Floating-point number of the driver");
  }
  for (std::size_t i = 0; i < std::size(header.cupsString); ++i) {
    all += line(place("cupsString", i), header.cupsString[i], "String of the driver");
  }
  all += line("cupsMarkerType", header.cupsMarkerType, "Ink or toner type");
  all += line("cupsRenderingIntent", header.cupsRenderingIntent, "Color rendering intent");
  all += line("cupsPageSizeName", header.cupsPageSizeName, "PageSize name");
  return all;
}

std::string header_as_json(const cups_page_header2_t& header, const StreamKind& kind, std::uint64_t page) {
  Json json;
  json["page"] = page;
  json["stream"] = {{"format", kind.format},
                    {"version", kind.version != 0 ? Json(kind.version) : Json(nullptr)},
                    {"compressed", kind.compressed},
                    {"byteOrder", kind.big_endian ? "big-endian" : "little-endian"}};
  json["MediaClass"] = json_of(header.MediaClass);
  json["MediaColor"] = json_of(header.MediaColor);
  json["MediaType"] = json_of(header.MediaType);
  json["OutputType"] = json_of(header.OutputType);
  json["AdvanceDistance"] = json_of(header.AdvanceDistance);
  json["AdvanceMedia"] = json_of(header.AdvanceMedia);
  json["Collate"] = json_of(header.Collate);
  json["CutMedia"] = json_of(header.CutMedia);
  json["Duplex"] = json_of(header.Duplex);
  json["HWResolution"] = json_of(header.HWResolution);
  json["ImagingBoundingBox"] = json_of(header.ImagingBoundingBox);
  json["InsertSheet"] = json_of(header.InsertSheet);
  json["Jog"] = json_of(header.Jog);
  json["LeadingEdge"] = json_of(header.LeadingEdge);
  json["Margins"] = json_of(header.Margins);
  json["ManualFeed"] = json_of(header.ManualFeed);
  json["MediaPosition"] = json_of(header.MediaPosition);
  json["MediaWeight"] = json_of(header.MediaWeight);
  json["MirrorPrint"] = json_of(header.MirrorPrint);
  json["NegativePrint"] = json_of(header.NegativePrint);
  json["NumCopies"] = json_of(header.NumCopies);
  json["Orientation"] = json_of(header.Orientation);
  json["OutputFaceUp"] = json_of(header.OutputFaceUp);
  json["PageSize"] = json_of(header.PageSize);
  json["Separations"] = json_of(header.Separations);
  json["TraySwitch"] = json_of(header.TraySwitch);
  json["Tumble"] = json_of(header.Tumble);
  json["cupsWidth"] = json_of(header.cupsWidth);
  json["cupsHeight"] = json_of(header.cupsHeight);
  json["cupsMediaType"] = json_of(header.cupsMediaType);
  json["cupsBitsPerColor"] = json_of(header.cupsBitsPerColor);
  json["cupsBitsPerPixel"] = json_of(header.cupsBitsPerPixel);
  json["cupsBytesPerLine"] = json_of(header.cupsBytesPerLine);
  json["cupsColorOrder"] = json_of(header.cupsColorOrder);
  json["cupsColorSpace"] = json_of(header.cupsColorSpace);
  json["cupsCompression"] = json_of(header.cupsCompression);
  json["cupsRowCount"] = json_of(header.cupsRowCount);
  json["cupsRowFeed"] = json_of(header.cupsRowFeed);
  json["cupsRowStep"] = json_of(header.cupsRowStep);
  json["cupsNumColors"] = json_of(header.cupsNumColors);
  json["cupsBorderlessScalingFactor"] = json_of(header.cupsBorderlessScalingFactor);
  json["cupsPageSize"] = json_of(header.cupsPageSize);
  json["cupsImagingBBox"] = json_of(header.cupsImagingBBox);
  json["cupsInteger"] = json_of(header.cupsInteger);
  json["cupsReal"] = json_of(header.cupsReal);
  json["cupsString"] = json_of(header.cupsString);
  json["cupsMarkerType"] = json_of(header.cupsMarkerType);
  json["cupsRenderingIntent"] = json_of(header.cupsRenderingIntent);
  json["cupsPageSizeName"] = json_of(header.cupsPageSizeName);
  // Strings may be invalid UTF-8 and may contain control characters for a terminal.
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}
