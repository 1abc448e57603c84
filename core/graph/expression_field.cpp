// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>
#include <utility>

#include "core/base/errors.h"
#include "core/base/hash.h"
#include "core/base/math_functions.h"
#include "core/data/polyline.h"
#include "core/expr/expression.h"
#include "core/graph/expression_environment.h"
#include "core/graph/map_fields.h"
#include "core/graph/map_files.h"

namespace kestrane::detail {

namespace {

constexpr std::uint64_t randSalt = 0xE9502A4Dull;
using Slot = ExpressionSlot;

/// A compiled expression with all that it reads of the strands at hand.
class BoundExpression {
 public:
  BoundExpression(const std::string& param, const MapRef& map, const EvalContext& context,
                  const FieldTarget& target, ExpressionType wanted)
      : strands_(*target.strands), surface_(target.surface) {
    const ExpressionEnvironment environment = expressionEnvironment(context, target.guides);
    const std::string prefix = "param '" + param + "': ";
    try {
      program_ = Expression::compile(map.text, environment, wanted);
    } catch (const ExpressionError& error) {
      throw GraphError(prefix + error.what());
    }
    for (const std::string& name : program_.channelNames()) {
      if (const Array<float>* values = strands_.strandChannel(name)) {
        channels_.push_back({*values, false});
      } else if (const Array<float>* points = strands_.pointChannel(name)) {
        channels_.push_back({*points, true});
        perPoint_ = true;
      } else {
        throw GraphError(prefix + "the expression reads '" + name +
                         "', which is neither a variable nor a channel of the strands");
      }
    }
    perPoint_ = perPoint_ || program_.readsPoints();
    frame_ = static_cast<float>(context.time);
    const double rate = context.resources ? context.resources->framesPerSecond : 24.0;
    time_ = static_cast<float>(rate > 0.0 ? context.time / rate : 0.0);
    if (program_.reads(Slot::longest)) longest_ = strands_.extent().maxLength;
  }

  const Expression& program() const { return program_; }
  const StrandSet& strands() const { return strands_; }
  bool perPoint() const { return perPoint_; }

  /// The strand's value at each of its points, or its one value. A strand of fewer points than
  /// asked for repeats its last value; one of none has the value of its root.
  template <class T>
  void values(std::size_t strand, std::span<T> out) const {
    const std::size_t points = strands_.strandPoints(strand).size();
    const std::size_t count =
        perPoint_ ? std::min(std::max<std::size_t>(points, 1), out.size()) : std::size_t{1};
    evaluate(strand, strand + 1, out.first(count));
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(count), out.end(), out[count - 1]);
  }

  /// The values of strands first to last, one after another.
  template <class T>
  void severalValues(std::size_t first, std::size_t last, std::span<T> out) const {
    const auto& offsets = strands_.offsets();
    for (std::size_t begin = first; begin < last; begin += mostStrands) {
      const std::size_t end = std::min(begin + mostStrands, last);
      const std::size_t count = perPoint_ ? offsets[end] - offsets[begin] : end - begin;
      if (count > 0) evaluate(begin, end, out.first(count));
      out = out.subspan(count);
    }
  }

 private:
  /// How many strands are evaluated at once.
  static constexpr std::size_t mostStrands = 128;

  /// What a block's lanes point to.
  struct Lanes {
    template <class T>
    using PerStrand = std::array<T, mostStrands>;
    std::array<PerStrand<float>, expressionSlotCount> slots;
    PerStrand<Vec3f> positions, normals;
    PerStrand<Vec2f> uvs;
    PerStrand<MapSample> locations;
    PerStrand<bool> rooted;
    std::array<std::uint32_t, mostStrands + 1> groups;
    std::array<std::vector<float>, expressionSlotCount> pointSlots;
  };

  /// Fills `out` with the values of strands first to last, at most mostStrands; where perPoint,
  /// with those at as many of their points.
  template <class T>
  void evaluate(std::size_t first, std::size_t last, std::span<T> out) const {
    thread_local Lanes lanes;
    const auto& offsets = strands_.offsets();
    ExpressionBlock block;
    block.count = out.size();
    block.strands = {first, 1, nullptr};
    block.points = {offsets[first], 1, nullptr};
    block.seeds = strands_.ids().data() + first;
    block.channels = channels_;
    block[Slot::frame] = frame_;
    block[Slot::time] = time_;
    block[Slot::longest] = longest_;
    fillStrands(first, last, lanes, block);
    if (perPoint_) {
      for (std::size_t s = first; s <= last; ++s) {
        lanes.groups[s - first] = static_cast<std::uint32_t>(offsets[s] - offsets[first]);
      }
      std::uint32_t& end = lanes.groups[last - first];
      if (end > 0) fillPoints(first, last, lanes, block);
      end = std::max(end, static_cast<std::uint32_t>(out.size()));
      block.groups = {lanes.groups.data(), last - first + 1};
    }
    program_.evaluateBlock(block, out);
  }

  bool readsAny(std::initializer_list<Slot> slots) const {
    return std::any_of(slots.begin(), slots.end(), [&](Slot slot) { return program_.reads(slot); });
  }

  void fillStrands(std::size_t first, std::size_t last, Lanes& lanes,
                   ExpressionBlock& block) const {
    const std::size_t count = last - first;
    const StrandRoot* roots = strands_.roots().data() + first;
    const auto points = [&](std::size_t i) { return strands_.strandPoints(first + i); };
    const auto start = [&](std::size_t i) {
      return points(i).empty() ? Vec3f{} : points(i).front();
    };
    const auto tip = [&](std::size_t i) { return points(i).empty() ? Vec3f{} : points(i).back(); };
    const auto fill = [&](Slot slot, const auto& at) {
      if (!program_.reads(slot)) return;
      auto& values = lanes.slots[static_cast<std::size_t>(slot)];
      for (std::size_t i = 0; i < count; ++i) values[i] = at(i);
      block[slot] = values.data();
    };
    const bool maps = !program_.mapNames().empty();
    for (std::size_t i = 0; i < count; ++i) {
      lanes.rooted[i] = surface_ && surface_->hasFace(roots[i].face);
    }
    if (maps || readsAny({Slot::u, Slot::v})) {
      for (std::size_t i = 0; i < count; ++i) {
        lanes.uvs[i] = lanes.rooted[i] ? surface_->uvAt(roots[i]) : Vec2f{};
      }
      fill(Slot::u, [&](std::size_t i) { return lanes.uvs[i].x; });
      fill(Slot::v, [&](std::size_t i) { return lanes.uvs[i].y; });
    }
    if (maps || readsAny({Slot::x, Slot::y, Slot::z})) {
      for (std::size_t i = 0; i < count; ++i) {
        lanes.positions[i] = lanes.rooted[i] ? surface_->positionAt(roots[i]) : start(i);
      }
      fill(Slot::x, [&](std::size_t i) { return lanes.positions[i].x; });
      fill(Slot::y, [&](std::size_t i) { return lanes.positions[i].y; });
      fill(Slot::z, [&](std::size_t i) { return lanes.positions[i].z; });
    }
    if (readsAny({Slot::nx, Slot::ny, Slot::nz, Slot::lift})) {
      for (std::size_t i = 0; i < count; ++i) {
        // Zero where no surface is known.
        lanes.normals[i] = lanes.rooted[i] ? surface_->normalAt(roots[i]) : Vec3f{};
      }
      fill(Slot::nx, [&](std::size_t i) { return lanes.normals[i].x; });
      fill(Slot::ny, [&](std::size_t i) { return lanes.normals[i].y; });
      fill(Slot::nz, [&](std::size_t i) { return lanes.normals[i].z; });
    }
    fill(Slot::rand, [&](std::size_t i) {
      return unitFloat(hashCombine(strands_.ids()[first + i], randSalt));
    });
    fill(Slot::index, [&](std::size_t i) { return static_cast<float>(first + i); });
    fill(Slot::length, [&](std::size_t i) { return polylineLength(points(i)); });
    fill(Slot::reach, [&](std::size_t i) { return distance(start(i), tip(i)); });
    fill(Slot::straightness, [&](std::size_t i) {
      const float size = polylineLength(points(i));
      return size > 0.0f ? distance(start(i), tip(i)) / size : 0.0f;
    });
    fill(Slot::lift, [&](std::size_t i) {
      const float rise = dot(kestrane::normalize(tip(i) - start(i)), lanes.normals[i]);
      return math::asin(std::clamp(rise, -1.0f, 1.0f));
    });
    fill(Slot::tipx, [&](std::size_t i) { return tip(i).x; });
    fill(Slot::tipy, [&](std::size_t i) { return tip(i).y; });
    fill(Slot::tipz, [&](std::size_t i) { return tip(i).z; });
    if (!maps) return;
    for (std::size_t i = 0; i < count; ++i) {
      lanes.locations[i] = {roots[i], lanes.positions[i], lanes.uvs[i],
                            lanes.rooted[i] ? surface_.get() : nullptr};
    }
    block.locations = lanes.locations.data();
    block.hasLocations = lanes.rooted.data();
  }

  /// The slots of points, at all points of the strands.
  void fillPoints(std::size_t first, std::size_t last, Lanes& lanes, ExpressionBlock& block) const {
    const auto& offsets = strands_.offsets();
    const std::size_t count = offsets[last] - offsets[first];
    const Vec3f* points = strands_.points().data() + offsets[first];
    const auto lane = [&](Slot slot) {
      std::vector<float>& values = lanes.pointSlots[static_cast<std::size_t>(slot)];
      if (values.size() < count) values.resize(count);
      block[slot] = values.data();
      return values.data();
    };
    const auto fill = [&](Slot slot, const auto& at) {
      if (!program_.reads(slot)) return;
      float* values = lane(slot);
      for (std::size_t i = 0; i < count; ++i) values[i] = at(i);
    };
    /// give(values, points) per strand.
    const auto fillEach = [&](Slot slot, const auto& give) {
      if (!program_.reads(slot)) return;
      float* values = lane(slot);
      for (std::size_t s = first; s < last; ++s) {
        const std::span<const Vec3f> own = strands_.strandPoints(s);
        if (!own.empty()) give(values + (offsets[s] - offsets[first]), own);
      }
    };
    fillEach(Slot::t, [](float* values, std::span<const Vec3f> own) {
      arcShares(own, {values, own.size()});
    });
    fillEach(Slot::pt, [](float* values, std::span<const Vec3f> own) {
      const float end = own.size() > 1 ? static_cast<float>(own.size() - 1) : 1.0f;
      for (std::size_t i = 0; i < own.size(); ++i) values[i] = static_cast<float>(i) / end;
    });
    fill(Slot::px, [&](std::size_t i) { return points[i].x; });
    fill(Slot::py, [&](std::size_t i) { return points[i].y; });
    fill(Slot::pz, [&](std::size_t i) { return points[i].z; });
    fillEach(Slot::pointIndex, [](float* values, std::span<const Vec3f> own) {
      for (std::size_t i = 0; i < own.size(); ++i) values[i] = static_cast<float>(i);
    });
  }

  Expression program_;
  const StrandSet& strands_;
  ScalpMeshPtr surface_;
  std::vector<ExpressionChannel> channels_;
  bool perPoint_ = false;
  float frame_ = 0.0f, time_ = 0.0f, longest_ = 0.0f;
};

/// A bound expression as the source of a field of numbers or vectors.
template <class T>
struct ExpressionSource final : FieldSource<T> {
  ExpressionSource(BoundExpression e, const MapRef& m) : expression(std::move(e)), map(m) {
    this->perPoint = expression.perPoint();
    this->wholeSet = expression.program().readsWholeSet();
    this->readsAhead = &expression.strands();
  }
  void values(std::size_t strand, std::span<T> out) const override {
    if (out.empty()) return;
    expression.values(strand, out);
    scale(out);
  }
  void severalValues(std::size_t first, std::size_t last, std::span<T> out) const override {
    expression.severalValues(first, last, out);
    scale(out);
  }
  void scale(std::span<T> values) const {
    if (map.min == 0.0f && map.max == 1.0f) return;
    if constexpr (std::is_same_v<T, float>) {
      map.scale(values);
    } else {
      for (T& value : values) value = map.scaled(value);
    }
  }

  BoundExpression expression;
  MapRef map;
};

}  // namespace

ScalarField expressionField(const std::string& param, const MapRef& map, const EvalContext& context,
                            const FieldTarget& target) {
  BoundExpression bound(param, map, context, target, ExpressionType::number);
  if (bound.program().isConstant()) {
    return ScalarField(map.scaled(bound.program().evaluate({})));
  }
  return ScalarField(std::make_shared<ExpressionSource<float>>(std::move(bound), map));
}

VectorField expressionVectorField(const std::string& param, const MapRef& map,
                                  const EvalContext& context, const FieldTarget& target) {
  return VectorField(std::make_shared<ExpressionSource<Vec3f>>(
      BoundExpression(param, map, context, target, ExpressionType::vector), map));
}

std::uint64_t expressionContextKey(const std::string& text, const EvalContext& context) {
  const ExpressionScan scan = Expression::scan(text);
  std::uint64_t key = 0;
  if (scan.readsTime()) {
    key = hashNumber(0x7173, context.time);
    if (context.resources) key = hashNumber(key, context.resources->framesPerSecond);
  }
  for (const std::string& name : scan.maps) {
    key = hashString(key, name);
    if (context.resources != nullptr && context.resources->paintedMap) {
      key = hashCombine(key, context.resources->paintedMap(name).revision);
    }
    key = hashCombine(key, mapFileKey(name, context));
    if (context.scene != nullptr) key = hashCombine(key, context.scene->revision("guides"));
  }
  return key;
}

bool expressionReadsTime(const std::string& text) {
  return Expression::scan(text).readsTime();
}

}  // namespace kestrane::detail
