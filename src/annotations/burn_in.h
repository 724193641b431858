// Burning annotations into a page image: drawing a list into the pixels of
// a DIB, in list order (later annotations cover earlier ones), choosing the
// image format that can show their colours, and redaction-only burning that
// removes the burned redactions from the list.
#pragma once

#include <cstdint>

#include "annotations/annotation.h"
#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

// Burn-in flags.
constexpr uint32_t kBurnInChooseFormat = 0x1;    // convert the image to the colour type the colours need
constexpr uint32_t kBurnInKeepImage = 0x2;       // draw into the caller's DIB when its format allows
constexpr uint32_t kBurnInRedactionsOnly = 0x4;  // draw only redactions, then remove them from the list
constexpr uint32_t kBurnInHidden = 0x8;          // make hidden annotations visible first

// The result of a burn-in that drew into the caller's DIB.
inline HGLOBAL BurnedInPlace() { return reinterpret_cast<HGLOBAL>(static_cast<intptr_t>(-1)); }

struct BurnInRequest {
    uint16_t rotation;         // clockwise turn of the page image: 0, 90, 180, 270
    HGLOBAL dib;               // the caller's packed DIB
    BITMAPINFOHEADER* header;  // its locked header; the rows follow the colour table
    uint32_t flags;
};

// The colours a list will draw on a page of at most 8 bits, and the colour
// type that shows them all. The set holds the page's table and every colour
// drawn, sorted, except black, which every page can show; counting stops
// being exact above 256.
constexpr uint32_t kPlanColorLimit = 260;
struct ColorPlan {
    int32_t colorType = 0;  // 0 no change needed; else 1 to 6 as ChangeDibColor takes them
    bool allGrey = false;   // every colour has equal red, green and blue
    uint32_t count = 0;
    COLORREF colors[kPlanColorLimit] = {};
};

// The plan for the annotations that burning `list` with `flags` draws; a
// page of more than 8 bits needs none (colour type 0).
void PlanColors(const AnnotationList& list, const BITMAPINFOHEADER* header, uint32_t flags, ColorPlan* plan);

// Draws the list into the page as burning in does. Returns null on failure
// (record set), the new DIB when a working copy or a converted image was made
// (the caller's DIB is unchanged and the caller owns the new one), or
// BurnedInPlace(). With kBurnInRedactionsOnly, on success every redaction
// node (labels and applied ones included) is removed from `list` and
// *removed tells whether any was.
HGLOBAL BurnInAnnotationList(AnnotationList* list, const BurnInRequest& request, bool* removed, ErrorRecord* record);

}  // namespace velmora
