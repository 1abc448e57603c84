// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
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
  bool perPoint() const { return perPoint_; }

  template <class T>
  void values(std::size_t strand, std::span<T> out) const {
    struct Buffers {
      std::vector<float> t, pt, x, y, z, index;
    };
    thread_local Buffers buffers;
    const std::span<const Vec3f> points = strands_.strandPoints(strand);
    const std::size_t count = perPoint_ ? std::min(out.size(), points.size()) : 1;
    ExpressionBlock block;
    block.count = std::max<std::size_t>(count, 1);
    block.strands = {strand, 0, nullptr};
    block.points = {strands_.offsets()[strand], perPoint_ ? std::size_t{1} : 0, nullptr};
    block.seeds = strands_.ids()[strand];
    block.channels = channels_;
    block[Slot::frame] = frame_;
    block[Slot::time] = time_;
    fillStrand(strand, points, block);
    if (perPoint_ && count > 0) {
      const auto fill = [&](Slot slot, std::vector<float>& buffer, const auto& at) {
        if (!program_.reads(slot)) return;
        buffer.resize(count);
        for (std::size_t i = 0; i < count; ++i) buffer[i] = at(i);
        block[slot] = buffer.data();
      };
      if (program_.reads(Slot::t)) {
        buffers.t.resize(points.size());
        arcShares(points, buffers.t);
        block[Slot::t] = buffers.t.data();
      }
      const float last = points.size() > 1 ? static_cast<float>(points.size() - 1) : 1.0f;
      fill(Slot::pt, buffers.pt, [&](std::size_t i) { return static_cast<float>(i) / last; });
      fill(Slot::px, buffers.x, [&](std::size_t i) { return points[i].x; });
      fill(Slot::py, buffers.y, [&](std::size_t i) { return points[i].y; });
      fill(Slot::pz, buffers.z, [&](std::size_t i) { return points[i].z; });
      fill(Slot::pointIndex, buffers.index, [&](std::size_t i) { return static_cast<float>(i); });
    }
    program_.evaluateBlock(block, out.first(block.count));
    // A strand of fewer points than asked for repeats its last value.
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(block.count), out.end(),
              out[block.count - 1]);
  }

 private:
  void fillStrand(std::size_t strand, std::span<const Vec3f> points, ExpressionBlock& block) const {
    const StrandRoot root = strands_.roots()[strand];
    const bool rooted = surface_ && surface_->hasFace(root.face);
    const Vec3f start = points.empty() ? Vec3f{} : points.front();
    const Vec3f tip = points.empty() ? Vec3f{} : points.back();
    const auto readsAny = [&](std::initializer_list<Slot> slots) {
      return std::any_of(slots.begin(), slots.end(),
                         [&](Slot slot) { return program_.reads(slot); });
    };
    const bool maps = !program_.mapNames().empty();
    Vec2f uv;
    if (maps || readsAny({Slot::u, Slot::v})) {
      if (rooted) uv = surface_->uvAt(root);
      block[Slot::u] = uv.x;
      block[Slot::v] = uv.y;
    }
    Vec3f position = start;
    if (maps || readsAny({Slot::x, Slot::y, Slot::z})) {
      if (rooted) position = surface_->positionAt(root);
      block[Slot::x] = position.x;
      block[Slot::y] = position.y;
      block[Slot::z] = position.z;
    }
    Vec3f normal;  // zero where no surface is known
    if (readsAny({Slot::nx, Slot::ny, Slot::nz, Slot::lift})) {
      if (rooted) normal = surface_->normalAt(root);
      block[Slot::nx] = normal.x;
      block[Slot::ny] = normal.y;
      block[Slot::nz] = normal.z;
    }
    if (program_.reads(Slot::rand)) {
      block[Slot::rand] = unitFloat(hashCombine(strands_.ids()[strand], randSalt));
    }
    block[Slot::index] = static_cast<float>(strand);
    block[Slot::longest] = longest_;
    if (readsAny({Slot::length, Slot::straightness})) {
      const float size = polylineLength(points);
      block[Slot::length] = size;
      block[Slot::straightness] = size > 0.0f ? distance(start, tip) / size : 0.0f;
    }
    block[Slot::reach] = distance(start, tip);
    if (program_.reads(Slot::lift)) {
      const float rise = dot(kestrane::normalize(tip - start), normal);
      block[Slot::lift] = math::asin(std::clamp(rise, -1.0f, 1.0f));
    }
    block[Slot::tipx] = tip.x;
    block[Slot::tipy] = tip.y;
    block[Slot::tipz] = tip.z;
    if (maps) {
      MapSample sample;
      sample.root = root;
      sample.position = position;
      sample.uv = uv;
      sample.surface = rooted ? surface_.get() : nullptr;
      block.locations = sample;
      block.hasLocations = rooted;
    }
  }

  Expression program_;
  const StrandSet& strands_;
  ScalpMeshPtr surface_;
  std::vector<ExpressionChannel> channels_;
  bool perPoint_ = false;
  float frame_ = 0.0f, time_ = 0.0f, longest_ = 0.0f;
};

/// A bound expression as the source of a field of numbers or vectors.
template <class Base, class T>
struct ExpressionSource final : Base {
  ExpressionSource(BoundExpression e, const MapRef& m) : expression(std::move(e)), map(m) {
    this->perPoint = expression.perPoint();
    this->wholeSet = expression.program().readsWholeSet();
  }
  void values(std::size_t strand, std::span<T> out) const override {
    if (out.empty()) return;
    expression.values(strand, out);
    if (map.min == 0.0f && map.max == 1.0f) return;
    for (T& value : out) value = map.scaled(value);
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
  return ScalarField(
      std::make_shared<ExpressionSource<ScalarField::Source, float>>(std::move(bound), map));
}

VectorField expressionVectorField(const std::string& param, const MapRef& map,
                                  const EvalContext& context, const FieldTarget& target) {
  return VectorField(std::make_shared<ExpressionSource<VectorField::Source, Vec3f>>(
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
