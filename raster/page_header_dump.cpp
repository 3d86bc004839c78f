// SPDX-License-Identifier: Apache-2.0
#include "raster/page_header_dump.h"

#include <cstdio>

#include "raster/raster_names.h"

namespace {

/// Unsigned fields are printed as signed, on purpose.
constexpr int number(unsigned field) {
  return static_cast<int>(field);
}

}  // namespace

void dump(const cups_page_header_t* header) {
  // The lines have no log prefix, on purpose.
  fprintf(stderr, "=== cups_page_header_t ===\n");
  fprintf(stderr, "Standard Page Device Dictionary String Values\n");
  fprintf(stderr, "__MediaClass=%.64s        /* MediaClass string */\n", header->MediaClass);
  fprintf(stderr, "__MediaColor=%.64s        /* MediaColor string */\n", header->MediaColor);
  fprintf(stderr, "__MediaType=%.64s        /* MediaType string */\n", header->MediaType);
  fprintf(stderr, "__OutputType=%.64s        /* OutputType string */\n", header->OutputType);
  fprintf(stderr, "Standard Page Device Dictionary Integer Values\n");
  fprintf(stderr, "__AdvanceDistance=%d        /* AdvanceDistance value in points */\n",
          number(header->AdvanceDistance));
  fprintf(stderr, "__AdvanceMedia=%s        /* AdvanceMedia value (@link cups_adv_t@) */\n",
          to_string(header->AdvanceMedia));
  fprintf(stderr, "__Collate=%s        /* Collated copies value */\n", to_string(header->Collate));
  fprintf(stderr, "__CutMedia=%s        /* CutMedia value (@link cups_cut_t@) */\n",
          to_string(header->CutMedia));
  fprintf(stderr, "__Duplex=%s        /* Duplexed (double-sided) value */\n", to_string(header->Duplex));
  fprintf(stderr, "__HWResolution=(%d,%d)        /* Resolution in dots-per-inch */\n",
          number(header->HWResolution[0]), number(header->HWResolution[1]));
  // Only two of the four values, on purpose.
  fprintf(stderr,
          "__ImagingBoundingBox=(%d,%d)        /* Pixel region that is painted (points, left, bottom, right, "
          "top) */\n",
          number(header->ImagingBoundingBox[0]), number(header->ImagingBoundingBox[1]));
  fprintf(stderr, "__InsertSheet=%s        /* InsertSheet value */\n", to_string(header->InsertSheet));
  fprintf(stderr, "__Jog=%s        /* Jog value (@link cups_jog_t@) */\n", to_string(header->Jog));
  fprintf(stderr, "__LeadingEdge=%s        /* LeadingEdge value (@link cups_edge_t@) */\n",
          to_string(header->LeadingEdge));
  fprintf(stderr, "__Margins=(%d,%d)        /* Lower-lefthand margins in points */\n",
          number(header->Margins[0]), number(header->Margins[1]));
  fprintf(stderr, "__ManualFeed=%s        /* ManualFeed value */\n", to_string(header->ManualFeed));
  fprintf(stderr, "__MediaPosition=%d        /* MediaPosition value */\n", number(header->MediaPosition));
  fprintf(stderr, "__MediaWeight=%d        /* MediaWeight value in grams/m^2 */\n",
          number(header->MediaWeight));
  fprintf(stderr, "__MirrorPrint=%s        /* MirrorPrint value */\n", to_string(header->MirrorPrint));
  fprintf(stderr, "__NegativePrint=%s        /* NegativePrint value */\n", to_string(header->NegativePrint));
  fprintf(stderr, "__NumCopies=%d        /* Number of copies to produce */\n", number(header->NumCopies));
  fprintf(stderr, "__Orientation=%s        /* Orientation value (@link cups_orient_t@) */\n",
          to_string(header->Orientation));
  fprintf(stderr, "__OutputFaceUp=%s        /* OutputFaceUp value */\n", to_string(header->OutputFaceUp));
  fprintf(stderr, "__PageSize=(%d,%d)        /* Width and length of page in points */\n",
          number(header->PageSize[0]), number(header->PageSize[1]));
  fprintf(stderr, "__Separations=%s        /* Separations value */\n", to_string(header->Separations));
  fprintf(stderr, "__TraySwitch=%s        /* TraySwitch value */\n", to_string(header->TraySwitch));
  fprintf(stderr, "__Tumble=%s        /* Tumble value */\n", to_string(header->Tumble));
  fprintf(stderr, "CUPS Page Device Dictionary Values\n");
  fprintf(stderr, "__cupsWidth=%d        /* Width of page image in pixels */\n", number(header->cupsWidth));
  fprintf(stderr, "__cupsHeight=%d        /* Height of page image in pixels */\n",
          number(header->cupsHeight));
  fprintf(stderr, "__cupsMediaType=%d        /* Media type code */\n", number(header->cupsMediaType));
  fprintf(stderr, "__cupsBitsPerColor=%d        /* Number of bits for each color */\n",
          number(header->cupsBitsPerColor));
  fprintf(stderr, "__cupsBitsPerPixel=%d        /* Number of bits for each pixel */\n",
          number(header->cupsBitsPerPixel));
  fprintf(stderr, "__cupsBytesPerLine=%d        /* Number of bytes per line */\n",
          number(header->cupsBytesPerLine));
  fprintf(stderr, "__cupsColorOrder=%s        /* Order of colors */\n", to_string(header->cupsColorOrder));
  fprintf(stderr, "__cupsColorSpace=%s        /* True colorspace */\n", to_string(header->cupsColorSpace));
  fprintf(stderr, "__cupsCompression=%d        /* Device compression to use */\n",
          number(header->cupsCompression));
  fprintf(stderr, "__cupsRowCount=%d        /* Rows per band */\n", number(header->cupsRowCount));
  fprintf(stderr, "__cupsRowFeed=%d        /* Feed between bands */\n", number(header->cupsRowFeed));
  fprintf(stderr, "__cupsRowStep=%d        /* Spacing between lines */\n", number(header->cupsRowStep));
}
