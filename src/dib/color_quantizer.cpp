#include "dib/color_quantizer.h"

#include <cstring>

namespace velmora {

bool ColorQuantizer::Begin(uint32_t wanted, ErrorRecord* record) {
    wanted_ = wanted;
    // Before a reduction the tree has at most wanted + 1 leaves, each with at
    // most 8 ancestors, and one addition makes at most 8 nodes.
    capacity_ = (wanted + 2) * (kDepth + 1) + 1;
    nodes_ = reinterpret_cast<Node*>(block_.Allocate(size_t{capacity_} * sizeof(Node), false, record));
    if (nodes_ == nullptr) return false;
    used_ = 0;
    free_ = kNone;
    leaves_ = 0;
    for (uint32_t& list : reducible_) list = kNone;
    NewNode(0);  // the root
    return true;
}

uint32_t ColorQuantizer::NewNode(unsigned level) {
    uint32_t index;
    if (free_ != kNone) {
        index = free_;
        free_ = nodes_[index].children[0];
    } else {
        index = used_++;
    }
    Node& node = nodes_[index];
    std::memset(&node, 0, sizeof(node));
    for (uint32_t& child : node.children) child = kNone;
    if (level == kDepth) {
        node.leaf = true;
        ++leaves_;
    } else {
        node.nextReducible = reducible_[level];
        reducible_[level] = index;
    }
    return index;
}

void ColorQuantizer::Add(COLORREF color) {
    const uint32_t red = color & 0xFF, green = (color >> 8) & 0xFF, blue = (color >> 16) & 0xFF;
    uint32_t index = 0;
    for (unsigned level = 0; !nodes_[index].leaf; ++level) {
        const unsigned shift = 7 - level;
        const unsigned child = ((red >> shift) & 1) << 2 | ((green >> shift) & 1) << 1 | ((blue >> shift) & 1);
        if (nodes_[index].children[child] == kNone) {
            uint32_t made = NewNode(level + 1);
            nodes_[index].children[child] = made;
            ++nodes_[index].childCount;
        }
        index = nodes_[index].children[child];
    }
    Node& leaf = nodes_[index];
    ++leaf.count;
    leaf.red += red;
    leaf.green += green;
    leaf.blue += blue;
    while (leaves_ > wanted_) Reduce();
}

void ColorQuantizer::Reduce() {
    unsigned level = kDepth;
    while (level > 0 && reducible_[level - 1] == kNone) --level;
    if (level == 0) return;
    const uint32_t index = reducible_[level - 1];
    Node& node = nodes_[index];
    reducible_[level - 1] = node.nextReducible;
    for (uint32_t& child : node.children) {
        if (child == kNone) continue;
        const Node& absorbed = nodes_[child];
        node.count += absorbed.count;
        node.red += absorbed.red;
        node.green += absorbed.green;
        node.blue += absorbed.blue;
        nodes_[child].children[0] = free_;
        free_ = child;
        child = kNone;
    }
    node.leaf = true;
    leaves_ -= node.childCount - 1u;
    node.childCount = 0;
}

void ColorQuantizer::Collect(uint32_t index, RGBQUAD* table, uint32_t* count) const {
    const Node& node = nodes_[index];
    if (node.leaf) {
        if (node.count == 0) return;
        table[*count] = RGBQUAD{static_cast<BYTE>(node.blue / node.count), static_cast<BYTE>(node.green / node.count),
                                static_cast<BYTE>(node.red / node.count), 0};
        ++*count;
        return;
    }
    for (uint32_t child : node.children) {
        if (child != kNone) Collect(child, table, count);
    }
}

uint32_t ColorQuantizer::Palette(RGBQUAD* table) const {
    uint32_t count = 0;
    if (nodes_ != nullptr) Collect(0, table, &count);
    return count;
}

}  // namespace velmora
