// SPDX-License-Identifier: Apache-2.0
#include "tests/raster/raster_streams.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "raster/page_header_dump.h"

namespace {

/// The first number of a header, behind its strings.
constexpr std::size_t NUMBERS = offsetof(cups_page_header2_t, AdvanceDistance);

ssize_t append(void* stream, unsigned char* bytes, size_t size) {
  static_cast<std::string*>(stream)->append(reinterpret_cast<char*>(bytes), size);
  return static_cast<ssize_t>(size);
}

void turn_round(std::string& stream, std::size_t begin, std::size_t end, std::size_t size) {
  for (std::size_t i = begin; i + size <= end; i += size) {
    std::reverse(stream.begin() + static_cast<std::ptrdiff_t>(i),
                 stream.begin() + static_cast<std::ptrdiff_t>(i + size));
  }
}

}  // namespace

Page make_page(unsigned width, unsigned height, unsigned variation) {
  Page page = make_page(width, height, 8, 3, CUPS_ORDER_CHUNKED, CUPS_CSPACE_SRGB);
  for (char& byte : page.pixels) {
    byte = static_cast<char>(byte + static_cast<char>(variation));
  }
  return page;
}

Page make_page(unsigned width, unsigned height, unsigned bits_per_color, unsigned colors, cups_order_t order,
               cups_cspace_t space) {
  Page page{};
  cups_page_header2_t& header = page.header;
  header.HWResolution[0] = header.HWResolution[1] = 300;
  header.PageSize[0] = 288;
  header.PageSize[1] = 432;
  header.cupsWidth = width;
  header.cupsHeight = height;
  header.cupsBitsPerColor = bits_per_color;
  header.cupsBitsPerPixel = bits_per_color * (order == CUPS_ORDER_CHUNKED ? colors : 1);
  const unsigned plane = (width * bits_per_color + 7) / 8;
  header.cupsBytesPerLine = order == CUPS_ORDER_CHUNKED  ? (width * header.cupsBitsPerPixel + 7) / 8
                            : order == CUPS_ORDER_BANDED ? plane * colors
                                                         : plane;
  header.cupsColorOrder = order;
  header.cupsColorSpace = space;
  header.cupsNumColors = colors;
  const std::size_t lines = std::size_t{height} * (order == CUPS_ORDER_PLANAR ? colors : 1);
  page.pixels.resize(lines * header.cupsBytesPerLine);
  for (std::size_t i = 0; i < page.pixels.size(); ++i) {
    page.pixels[i] = static_cast<char>(i * 31 % 251);
  }
  return page;
}

std::string write_stream(const std::vector<Page>& pages, cups_mode_t mode) {
  std::string stream;
  cups_raster_t* raster = cupsRasterOpenIO(append, &stream, mode);
  for (Page page : pages) {
    if (cupsRasterWriteHeader2(raster, &page.header) == 0) {
      throw std::runtime_error("cupsRasterWriteHeader2() failed");
    }
    for (std::size_t i = 0; i < page.pixels.size(); i += page.header.cupsBytesPerLine) {
      cupsRasterWritePixels(raster, reinterpret_cast<unsigned char*>(page.pixels.data() + i),
                            page.header.cupsBytesPerLine);
    }
  }
  cupsRasterClose(raster);
  return stream;
}

std::string write_first_version(const std::vector<Page>& pages) {
  constexpr unsigned SYNC = CUPS_RASTER_SYNCv1;
  std::string stream(reinterpret_cast<const char*>(&SYNC), sizeof SYNC);
  for (const Page& page : pages) {
    stream.append(reinterpret_cast<const char*>(&page.header), sizeof(cups_page_header_t));
    stream += page.pixels;
  }
  return stream;
}

std::string other_byte_order(const std::string& stream, const std::vector<Page>& pages) {
  const bool first_version = stream.starts_with("tSaR");
  const std::size_t header_size = first_version ? sizeof(cups_page_header_t) : sizeof(cups_page_header2_t);
  // Strings follow the numbers of a version 2 header.
  const std::size_t numbers_end = first_version ? header_size : offsetof(cups_page_header2_t, cupsString);
  std::string turned = stream;
  turn_round(turned, 0, 4, 4);
  std::size_t position = 4;
  for (const Page& page : pages) {
    turn_round(turned, position + NUMBERS, position + numbers_end, 4);
    position += header_size;
    if (page.header.cupsBitsPerColor == 16) {
      turn_round(turned, position, position + page.pixels.size(), 2);
    }
    position += page.pixels.size();
  }
  return turned;
}

std::string headers_of(const std::vector<Page>& pages, const std::string& kind, int first_page) {
  std::string all;
  for (const Page& page : pages) {
    cups_page_header_t header;
    std::memcpy(&header, &page.header, sizeof header);
    testing::internal::CaptureStderr();
    dump(&header);
    all +=
        "page " + std::to_string(first_page++) + ": " + kind + "\n" + testing::internal::GetCapturedStderr();
  }
  return all;
}

std::string Rasterdump::file(const std::string& content, const std::string& name) const {
  std::ofstream(path(name), std::ios::binary) << content;
  return path(name);
}

ProgramResult Rasterdump::run(std::vector<std::string> arguments, const std::string& input) {
  arguments.insert(arguments.begin(), RASTERDUMP_PROGRAM);
  // Failing to allocate memory is a valid result, also with the sanitizers.
  return run_program(arguments, input, {{"ASAN_OPTIONS", "allocator_may_return_null=1"}});
}

std::map<std::string, std::string> Rasterdump::bands() const {
  std::map<std::string, std::string> contents;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
    if (entry.path().extension() == ".raw") {
      std::ifstream band(entry.path(), std::ios::binary);
      contents[entry.path().filename()] = {std::istreambuf_iterator<char>(band), {}};
    }
  }
  return contents;
}

std::string Rasterdump::joined_bands() const {
  std::string all;
  for (const auto& [name, content] : bands()) {
    all += content;
  }
  return all;
}
