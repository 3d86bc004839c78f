// SPDX-License-Identifier: Apache-2.0
// The state-reason table maps the printer's status codes to printer-state-reasons keywords.
#pragma once

#include <cstdint>
#include <iterator>
#include <span>

/// PrinterStateReason maps a status code, or a range of codes, to printer-state-reasons keywords.
struct PrinterStateReason {
  /// The high byte of the code; on purpose, only the low 8 bits are used.
  std::uint16_t major;
  /// Below 256, the low byte of the code. From 256, a range of low bytes: the first is in the low byte, the
  /// last (inclusive) in the high byte. A range whose first is above its last contains no code.
  std::uint16_t minor;
  /// Keywords, then null pointers.
  const char* reasons[4];

  /// Returns the keywords without the null pointers.
  [[nodiscard]] constexpr std::span<const char* const> keywords() const {
    std::size_t count = 0;
    while (count < std::size(reasons) && reasons[count] != nullptr) {
      ++count;
    }
    return std::span(reasons).first(count);
  }
};

/// PRINTER_STATE_REASONS lists the known status codes in ascending order. Row 0 is "no error" and has no
/// keyword. Each other row has one keyword of its own.
inline constexpr PrinterStateReason PRINTER_STATE_REASONS[110] = {
    {0x00, 0x00, {}},
    {0x00, 0x01, {"com.brenvellis-error0001"}},
    {0x00, 0x02, {"com.brenvellis-error0002"}},
    {0x00, 0x03, {"com.brenvellis-error0003"}},
    {0x00, 0x04, {"com.brenvellis-error0004"}},
    {0x00, 0x05, {"com.brenvellis-error0005"}},
    {0x00, 0x32, {"com.brenvellis-error0032"}},
    {0x00, 0x33, {"com.brenvellis-error0033"}},
    {0x21, 0x00, {"com.brenvellis-error0007_2100"}},
    {0x21, 0x10, {"com.brenvellis-error0007_2110"}},
    {0x21, 0x20, {"com.brenvellis-error0007_2120"}},
    {0x21, 0x30, {"com.brenvellis-error0007_2130"}},
    {0x21, 0x90, {"com.brenvellis-error0006_2190"}},
    {0x22, 0x00, {"com.brenvellis-error0011_2200"}},
    {0x22, 0x02, {"com.brenvellis-error0015_2202"}},
    {0x23, 0x90, {"com.brenvellis-error0013_2390"}},
    {0x26, 0x00, {"com.brenvellis-error0008_2600"}},
    {0x26, 0x01, {"com.brenvellis-error0008_2601"}},
    {0x26, 0x02, {"com.brenvellis-error0008_2602"}},
    {0x26, 0x10, {"com.brenvellis-error0008_2610"}},
    {0x26, 0x11, {"com.brenvellis-error0008_2611"}},
    {0x26, 0x20, {"com.brenvellis-error0008_2620"}},
    {0x26, 0x21, {"com.brenvellis-error0008_2621"}},
    {0x26, 0x22, {"com.brenvellis-error0008_2622"}},
    {0x26, 0x23, {"com.brenvellis-error0008_2623"}},
    {0x26, 0x24, {"com.brenvellis-error0008_2624"}},
    {0x26, 0x25, {"com.brenvellis-error0008_2625"}},
    {0x26, 0x26, {"com.brenvellis-error0008_2626"}},
    {0x26, 0x60, {"com.brenvellis-error0008_2660"}},
    {0x26, 0x61, {"com.brenvellis-error0008_2661"}},
    {0x26, 0x62, {"com.brenvellis-error0008_2662"}},
    {0x26, 0x63, {"com.brenvellis-error0008_2663"}},
    {0x26, 0x64, {"com.brenvellis-error0008_2664"}},
    {0x26, 0x65, {"com.brenvellis-error0008_2665"}},
    {0x26, 0x66, {"com.brenvellis-error0008_2666"}},
    {0x26, 0x67, {"com.brenvellis-error0008_2667"}},
    {0x26, 0x68, {"com.brenvellis-error0008_2668"}},
    {0x26, 0x69, {"com.brenvellis-error0008_2669"}},
    {0x26, 0x70, {"com.brenvellis-error0008_2670"}},
    {0x26, 0x71, {"com.brenvellis-error0008_2671"}},
    {0x26, 0x72, {"com.brenvellis-error0008_2672"}},
    {0x26, 0x73, {"com.brenvellis-error0008_2673"}},
    {0x26, 0x74, {"com.brenvellis-error0008_2674"}},
    {0x26, 0x75, {"com.brenvellis-error0008_2675"}},
    {0x26, 0x76, {"com.brenvellis-error0008_2676"}},
    {0x26, 0x77, {"com.brenvellis-error0008_2677"}},
    {0x26, 0x78, {"com.brenvellis-error0008_2678"}},
    {0x26, 0x79, {"com.brenvellis-error0008_2679"}},
    {0x26, 0x80, {"com.brenvellis-error0008_2680"}},
    {0x26, 0x81, {"com.brenvellis-error0008_2681"}},
    {0x26, 0x82, {"com.brenvellis-error0008_2682"}},
    {0x26, 0x83, {"com.brenvellis-error0008_2683"}},
    {0x26, 0x84, {"com.brenvellis-error0008_2684"}},
    {0x26, 0x85, {"com.brenvellis-error0008_2685"}},
    {0x26, 0x86, {"com.brenvellis-error0008_2686"}},
    {0x26, 0x87, {"com.brenvellis-error0008_2687"}},
    {0x26, 0x88, {"com.brenvellis-error0008_2688"}},
    {0x26, 0x89, {"com.brenvellis-error0008_2689"}},
    {0x26, 0x90, {"com.brenvellis-error0008_2690"}},
    {0x28, 0x00, {"com.brenvellis-error0010_2800"}},
    {0x29, 0x00, {"com.brenvellis-error0012_2900"}},
    {0x31, 0x90, {"com.brenvellis-error0009_3190"}},
    {0x32, 0x90, {"com.brenvellis-error0009_3290"}},
    {0x34, 0x90, {"com.brenvellis-error0009_3490"}},
    {0x35, 0x90, {"com.brenvellis-error0009_3590"}},
    {0x37, 0x90, {"com.brenvellis-error0009_3790"}},
    {0x40, 0x93, {"com.brenvellis-error0016_4093"}},
    {0x42, 0x91, {"com.brenvellis-error0016_4291"}},
    {0x42, 0x93, {"com.brenvellis-error0016_4293"}},
    {0x43, 0x91, {"com.brenvellis-error0016_4391"}},
    {0x43, 0x93, {"com.brenvellis-error0016_4393"}},
    {0x44, 0x91, {"com.brenvellis-error0016_4491"}},
    {0x44, 0x93, {"com.brenvellis-error0016_4493"}},
    {0x60, 0x01, {"com.brenvellis-error0020_6001"}},
    {0x60, 0x03, {"com.brenvellis-error0020_6003"}},
    {0x60, 0x11, {"com.brenvellis-error0020_6011"}},
    {0x60, 0x13, {"com.brenvellis-error0020_6013"}},
    {0x60, 0x30, {"com.brenvellis-error0028_6030"}},
    {0x61, 0x00, {"com.brenvellis-error0021_6100"}},
    {0x62, 0x00, {"com.brenvellis-error0029_6200"}},
    {0x62, 0x10, {"com.brenvellis-error0029_6210"}},
    {0x62, 0x20, {"com.brenvellis-error0029_6220"}},
    {0x63, 0x00, {"com.brenvellis-error0024_6300"}},
    {0x63, 0x10, {"com.brenvellis-error0024_6310"}},
    {0x63, 0x20, {"com.brenvellis-error0024_6320"}},
    {0x64, 0x00, {"com.brenvellis-error0025_6400"}},
    {0x64, 0x10, {"com.brenvellis-error0025_6410"}},
    {0x64, 0x30, {"com.brenvellis-error0025_6430"}},
    {0x65, 0x00, {"com.brenvellis-error0031_6500"}},
    {0x65, 0x10, {"com.brenvellis-error0031_6510"}},
    {0x65, 0x20, {"com.brenvellis-error0031_6520"}},
    {0x65, 0x30, {"com.brenvellis-error0031_6530"}},
    {0x66, 0x20, {"com.brenvellis-error0027_6620"}},
    {0x67, 0x00, {"com.brenvellis-error0034_6700"}},
    {0x67, 0x10, {"com.brenvellis-error0034_6710"}},
    {0x68, 0x02, {"com.brenvellis-error0019_6802"}},
    {0x69, 0x00, {"com.brenvellis-error0034_6900"}},
    {0x69, 0x01, {"com.brenvellis-error0034_6901"}},
    {0x69, 0x03, {"com.brenvellis-error0034_6903"}},
    {0x70, 0x54, {"com.brenvellis-error0018_7054"}},
    {0x70, 0x92, {"com.brenvellis-error0017_7092"}},
    {0x71, 0x92, {"com.brenvellis-error0017_7192"}},
    {0x71, 0x94, {"com.brenvellis-error0017_7194"}},
    {0x72, 0x50, {"com.brenvellis-error0018_7250"}},
    {0x72, 0x92, {"com.brenvellis-error0017_7292"}},
    {0x73, 0x50, {"com.brenvellis-error0018_7350"}},
    {0x73, 0x92, {"com.brenvellis-error0017_7392"}},
    {0x74, 0x52, {"com.brenvellis-error0018_7452"}},
    {0x74, 0x93, {"com.brenvellis-error0017_7493"}},
    {0x75, 0x52, {"com.brenvellis-error0018_7552"}},
};

/// FALLBACK_REASON is raised if no row matches the printer's state. On purpose, it is also the keyword of
/// code 0x0004.
inline constexpr const char* FALLBACK_REASON = "com.brenvellis-error0004";
