// SPDX-License-Identifier: Apache-2.0
#include "raster/raster_stream.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

RasterStream::~RasterStream() {
  cupsRasterClose(raster_);
}

bool RasterStream::open() {
  raster_ = cupsRasterOpenIO(read_for_cups, this, CUPS_RASTER_READ);
  if (raster_ == nullptr) {
    error_ = received_ == 0 && read_error_ == 0 ? "the stream is empty" : reason("not a CUPS raster stream");
  }
  return raster_ != nullptr;
}

RasterStream::Next RasterStream::next_page() {
  const std::uint64_t received_before = received_;
  first_request_.reset();
  if (cupsRasterReadHeader2(raster_, &header_) != 0) {
    if (header_size_ == 0) {
      // The library has read nothing ahead of the first header.
      header_size_ = first_request_.value_or(0);
    }
    return Next::Page;
  }
  // The stream is complete if the library asked for a whole header, so that its buffer has no byte of it, and
  // got nothing.
  const bool nothing_came = ended_ && received_ == received_before;
  const bool asked_for_whole = header_size_ == 0 || first_request_ == header_size_;
  if (nothing_came && asked_for_whole && read_error_ == 0) {
    return Next::End;
  }
  if (ended_) {
    error_ = "unexpected end of the stream in the page header";
  } else {
    error_ = reason("invalid page header (its sizes are 0 or inconsistent)");
  }
  return Next::Failure;
}

StreamKind RasterStream::kind() const {
  // A stream begins with "RaSt", "RaS2" or "RaS3", with the reverse, or with "UNIR".
  StreamKind kind;
  kind.big_endian = sync_[0] == 'R' || sync_[0] == 'U';
  const unsigned char version = kind.big_endian ? sync_[3] : sync_[0];
  if (sync_[0] == 'U') {
    kind.format = "Apple";
  } else {
    kind.version = version == 't' ? 1 : version - '0';
    if (kind.version == 2 && std::strncmp(header_.MediaClass, "PwgRaster", sizeof header_.MediaClass) == 0) {
      kind.format = "PWG";
    }
  }
  kind.compressed = kind.version == 2 || kind.version == 0;
  return kind;
}

std::uint64_t RasterStream::planes() const {
  return header_.cupsColorOrder == CUPS_ORDER_PLANAR ? header_.cupsNumColors : 1;
}

bool RasterStream::read_pixels(std::span<unsigned char> pixels) {
  const auto size = static_cast<unsigned>(pixels.size());
  if (cupsRasterReadPixels(raster_, pixels.data(), size) == size) {
    return true;
  }
  error_ = reason("invalid pixel data");
  return false;
}

ssize_t RasterStream::read_for_cups(void* stream, unsigned char* buffer, size_t size) {
  return static_cast<RasterStream*>(stream)->read_some(buffer, size);
}

ssize_t RasterStream::read_some(unsigned char* buffer, size_t size) {
  if (!first_request_) {
    first_request_ = size;
  }
  ssize_t count = 0;
  do {
    count = read(descriptor_, buffer, size);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    read_error_ = errno;
  } else if (count == 0) {
    ended_ = true;
  } else {
    if (received_ < sync_.size()) {
      std::copy_n(buffer, std::min(static_cast<std::size_t>(count), sync_.size() - received_),
                  sync_.begin() + static_cast<std::ptrdiff_t>(received_));
    }
    received_ += static_cast<std::uint64_t>(count);
  }
  return count;
}

std::string RasterStream::reason(const char* if_the_bytes_are_wrong) const {
  if (read_error_ != 0) {
    return std::string("cannot read: ") + std::strerror(read_error_);
  }
  return raster_ != nullptr && ended_ ? "unexpected end of the stream" : if_the_bytes_are_wrong;
}
