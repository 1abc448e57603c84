// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/box_tree.h"

#include <algorithm>

#include "core/base/array.h"
#include "core/base/parallel.h"

namespace kestrane::detail {

namespace {

/// Ranges below this many items are not worth another thread.
constexpr std::size_t kForkItems = 16384;

struct Item {
  float center[3];
  std::uint32_t number;
};

struct Parts {
  std::uint32_t nodes = 0;
  std::uint32_t leaves = 0;
};

class ShapeBuilder {
 public:
  ShapeBuilder(std::span<const Vec3f> centers, std::size_t leafLimit, BoxTreeShape& shape)
      : leafLimit_(leafLimit), total_(centers.size()), shape_(shape), items_(centers.size()) {
    kestrane::isolatedRange(0, total_, 65536, [&](std::size_t begin, std::size_t end) {
      for (std::size_t i = begin; i < end; ++i) {
        const Vec3f c = isFinite(centers[i]) ? centers[i] : Vec3f{};
        items_[i] = {{c.x, c.y, c.z}, static_cast<std::uint32_t>(i)};
      }
    });
    countParts();
  }

  void build() {
    const Parts parts = partsOf(0, total_);
    shape_.children.resize(parts.nodes);
    shape_.order.resize(total_);
    shape_.leafStarts.resize(parts.leaves + 1);
    shape_.leafStarts.back() = static_cast<std::uint32_t>(total_);
    shape_.root = isLeaf(total_) ? ~0 : 0;
    // One isolated step around it all makes the nested loops isolated, too.
    kestrane::isolatedRange(0, 1, 1,
                            [&](std::size_t, std::size_t) { buildRange(0, 0, total_, {}); });
  }

 private:
  bool isLeaf(std::size_t count) const { return count < leafLimit_; }

  // Halving keeps the counts on each level within one of each other, so a range's size on a level
  // is one of two, and a table of these tells beforehand where each subtree's nodes and leaves go.
  // That lets subtrees be built side by side.
  void countParts() {
    int deepest = 0;
    while (!isLeaf((total_ >> deepest) + 1)) ++deepest;
    parts_.resize(deepest + 3);
    for (int level = deepest; level >= 0; --level) {
      for (std::size_t extra = 0; extra < 2; ++extra) {
        const std::size_t count = (total_ >> level) + extra;
        Parts& parts = parts_[level][extra];
        if (isLeaf(count)) {
          parts.leaves = 1;
          continue;
        }
        parts.nodes = 1;
        for (const std::size_t half : {count / 2, count - count / 2}) {
          const Parts& below = partsOf(level + 1, half);
          parts.leaves += below.leaves;
          if (isLeaf(half)) continue;
          parts.nodes += partsOf(level + 2, half / 2).nodes;
          parts.nodes += partsOf(level + 2, half - half / 2).nodes;
        }
      }
    }
  }

  const Parts& partsOf(int level, std::size_t count) const {
    static constexpr Parts kLeaf{0, 1};
    if (isLeaf(count)) return kLeaf;
    return parts_[level][count - (total_ >> level)];
  }

  /// Makes the subtree over items [begin, end), whose first node and leaf have these numbers.
  void buildRange(int level, std::size_t begin, std::size_t end, Parts first) {
    if (isLeaf(end - begin)) {
      makeLeaf(begin, end, first.leaves);
      return;
    }
    auto& children = shape_.children[first.nodes];
    children.fill(BoxTreeShape::kNoChild);
    const std::size_t middle = split(begin, end);
    Parts next{first.nodes + 1, first.leaves};
    const bool fork = end - begin >= kForkItems;
    struct Child {
      std::size_t begin, end;
      int level;
      Parts first;
    };
    Child ranges[4];
    int count = 0;
    const auto addChild = [&](int childLevel, std::size_t from, std::size_t to) {
      const Parts& parts = partsOf(childLevel, to - from);
      children[count] = static_cast<std::int32_t>(isLeaf(to - from) ? ~next.leaves : next.nodes);
      ranges[count++] = {from, to, childLevel, next};
      next = {next.nodes + parts.nodes, next.leaves + parts.leaves};
    };
    const std::size_t halves[3] = {begin, middle, end};
    std::size_t quarters[2] = {};
    forEach(2, fork, [&](std::size_t k) {
      if (!isLeaf(halves[k + 1] - halves[k])) quarters[k] = split(halves[k], halves[k + 1]);
    });
    for (int k = 0; k < 2; ++k) {
      if (isLeaf(halves[k + 1] - halves[k])) {
        addChild(level + 1, halves[k], halves[k + 1]);
      } else {
        addChild(level + 2, halves[k], quarters[k]);
        addChild(level + 2, quarters[k], halves[k + 1]);
      }
    }
    forEach(count, fork, [&](std::size_t k) {
      buildRange(ranges[k].level, ranges[k].begin, ranges[k].end, ranges[k].first);
    });
  }

  template <class Body>
  static void forEach(std::size_t count, bool fork, const Body& body) {
    const auto range = [&](std::size_t begin, std::size_t end) {
      for (std::size_t k = begin; k < end; ++k) body(k);
    };
    if (fork) {
      kestrane::parallelRange(0, count, 1, range);
    } else {
      range(0, count);
    }
  }

  std::size_t split(std::size_t begin, std::size_t end) {
    float low[3] = {FLT_MAX, FLT_MAX, FLT_MAX}, high[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    for (std::size_t i = begin; i < end; ++i) {
      for (int axis = 0; axis < 3; ++axis) {
        low[axis] = std::min(low[axis], items_[i].center[axis]);
        high[axis] = std::max(high[axis], items_[i].center[axis]);
      }
    }
    int longest = 0;
    for (int axis = 1; axis < 3; ++axis) {
      if (high[axis] - low[axis] > high[longest] - low[longest]) longest = axis;
    }
    const std::size_t middle = begin + (end - begin) / 2;
    const auto at = [this](std::size_t i) {
      return items_.begin() + static_cast<std::ptrdiff_t>(i);
    };
    std::nth_element(at(begin), at(middle), at(end), [longest](const Item& a, const Item& b) {
      const float x = a.center[longest], y = b.center[longest];
      return x < y || (x == y && a.number < b.number);
    });
    return middle;
  }

  void makeLeaf(std::size_t begin, std::size_t end, std::uint32_t leaf) {
    shape_.leafStarts[leaf] = static_cast<std::uint32_t>(begin);
    for (std::size_t i = begin; i < end; ++i) shape_.order[i] = items_[i].number;
    std::sort(shape_.order.data() + begin, shape_.order.data() + end);
  }

  std::size_t leafLimit_;
  std::size_t total_;
  BoxTreeShape& shape_;
  Array<Item> items_;
  std::vector<std::array<Parts, 2>> parts_;
};

}  // namespace

BoxTreeShape makeBoxTreeShape(std::span<const Vec3f> centers, std::size_t leafLimit) {
  BoxTreeShape shape;
  if (!centers.empty()) ShapeBuilder(centers, leafLimit, shape).build();
  return shape;
}

std::vector<BoxNode> fillBoxes(const BoxTreeShape& shape, std::span<const Box> leafBoxes,
                               Box& whole) {
  std::vector<BoxNode> nodes(shape.children.size());
  std::vector<Box> boxes(nodes.size());
  for (std::size_t i = nodes.size(); i-- > 0;) {
    BoxNode& node = nodes[i];
    for (int k = 0; k < 4; ++k) {
      const std::int32_t child = shape.children[i][k];
      Box box;
      if (child != BoxTreeShape::kNoChild) box = child < 0 ? leafBoxes[~child] : boxes[child];
      for (int axis = 0; axis < 3; ++axis) {
        node.low[axis][k] = box.low[axis];
        node.high[axis][k] = box.high[axis];
      }
      node.child[k] = child;
      boxes[i].add(box);
    }
  }
  whole = nodes.empty() ? (leafBoxes.empty() ? Box{} : leafBoxes[0]) : boxes[0];
  return nodes;
}

}  // namespace kestrane::detail
