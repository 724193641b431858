// The octree colour quantiser: colours are added one at a time into a tree
// of depth 8 whose node at level k has eight children chosen by bit 7 - k of
// red, green and blue (red the highest index bit). While the tree has more
// leaves than colours wanted, the most recently made node of the deepest
// level that still has children absorbs them and becomes a leaf. Each leaf
// gives one palette colour, the truncated mean of the colours it absorbed.
// An image of at most the wanted number of distinct colours therefore gets
// exactly its own colours back.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "frame/scratch_block.h"
#include "velmora/wintypes.h"

namespace velmora {

class ColorQuantizer {
public:
    // Prepares for at most `wanted` colours (2 to 256); false with the record
    // set when memory is short.
    bool Begin(uint32_t wanted, ErrorRecord* record);
    void Add(COLORREF color);
    // Writes the palette (at most `wanted` entries, in tree order) and returns
    // its length.
    uint32_t Palette(RGBQUAD* table) const;

private:
    static constexpr uint32_t kNone = 0xFFFFFFFF;
    static constexpr unsigned kDepth = 8;
    struct Node {
        uint64_t count;
        uint64_t red, green, blue;
        uint32_t children[8];
        uint32_t nextReducible;  // the next node of the same level's list
        uint8_t childCount;
        bool leaf;
    };

    uint32_t NewNode(unsigned level);
    void Reduce();
    void Collect(uint32_t node, RGBQUAD* table, uint32_t* count) const;

    ScratchBlock block_;
    Node* nodes_ = nullptr;
    uint32_t capacity_ = 0;
    uint32_t used_ = 0;
    uint32_t free_ = kNone;  // freed nodes, chained through children[0]
    uint32_t reducible_[kDepth] = {};
    uint32_t leaves_ = 0;
    uint32_t wanted_ = 0;
};

}  // namespace velmora
