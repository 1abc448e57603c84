// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/affect_mix.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "core/base/parallel.h"
#include "core/graph/scalar_field.h"

namespace kestrane {

namespace {

/// One float channel to mix, or one of IDs to switch. Without `in` the input lacks the channel, and
/// its default stands for the input's values.
struct MixedChannel {
  const float* in = nullptr;
  float inDefault = 0.0f;
  const float* out = nullptr;
  float* result = nullptr;
  bool isIds = false;

  void mix(std::size_t i, float weight) const {
    const float from = in ? in[i] : inDefault;
    if (isIds) {
      result[i] = weight >= 0.5f ? out[i] : from;
    } else {
      result[i] = weight >= 1.0f ? out[i] : from + (out[i] - from) * weight;
    }
  }
};

bool holdsIds(std::string_view name) {
  return name.ends_with("Id") || name.ends_with("ID") || name == "id";
}

std::vector<MixedChannel> strandChannels(const StrandSet& in, const StrandSet& out,
                                         StrandSet& result) {
  std::vector<MixedChannel> channels;
  for (const std::string& name : out.strandChannelNames()) {
    if (out.sharesStrandChannelWith(name, in)) continue;
    const Array<float>* from = in.strandChannel(name);
    const float standIn = out.strandChannelDefault(name);
    channels.push_back({from ? from->data() : nullptr, standIn, out.strandChannel(name)->data(),
                        result.overwriteStrandChannel(name, standIn).data(), holdsIds(name)});
  }
  return channels;
}

std::vector<MixedChannel> pointChannels(const StrandSet& in, const StrandSet& out,
                                        StrandSet& result) {
  std::vector<MixedChannel> channels;
  if (!out.sharesWidthsWith(in)) {
    channels.push_back(
        {in.widths().data(), 0.0f, out.widths().data(), result.overwriteWidths().data(), false});
  }
  for (const std::string& name : out.pointChannelNames()) {
    if (out.sharesPointChannelWith(name, in)) continue;
    const Array<float>* from = in.pointChannel(name);
    const float standIn = out.pointChannelDefault(name);
    channels.push_back({from ? from->data() : nullptr, standIn, out.pointChannel(name)->data(),
                        result.overwritePointChannel(name, standIn).data(), holdsIds(name)});
  }
  return channels;
}

/// Into 0 to 1; what is no number counts as 0.
float weightOf(float value) {
  return value > 0.0f ? std::min(value, 1.0f) : 0.0f;
}

GuideSetPtr guidesAmong(std::span<const GraphValue> inputs) {
  for (const GraphValue& value : inputs) {
    if (auto guides = valueAs<GuideSet>(value)) return guides;
  }
  return nullptr;
}

}  // namespace

Affect readAffect(const Operator& op) {
  const ParamSet& params = op.parameters;
  if (params.wiredField("affect")) return Affect::mixed;
  const ParamKind kind = kindOf(params.value("affect"));
  if (kind != ParamKind::number && kind != ParamKind::integer) return Affect::mixed;
  const double share = params.number("affect", 1.0);
  return share == 1.0 ? Affect::whole : share == 0.0 ? Affect::nothing : Affect::mixed;
}

GraphValue mixAffect(const Operator& op, const EvalContext& context,
                     std::span<const GraphValue> inputs, const GraphValue& output) {
  const StrandSetPtr in = valueAs<StrandSet>(inputs[0]), out = valueAs<StrandSet>(output);
  if (in && in == out) return output;
  const bool sameLayout = in && out && in->strandCount() == out->strandCount() &&
                          (in->sharesOffsetsWith(*out) || in->offsets() == out->offsets());
  if (!sameLayout) {
    context.warn("affect is not applied: this node changes how many strands or points there are");
    return output;
  }
  const ScalarField affect =
      bindParam(op, "affect", context, {in.get(), context.surface, guidesAmong(inputs)});

  auto result = std::make_shared<StrandSet>(*in);
  // Attachments cannot be mixed, so what the node attached goes on.
  result->cardMesh = out->cardMesh;
  result->featherLayers = out->featherLayers;
  result->scaleMeshes = out->scaleMeshes;
  const bool moved = !out->sharesPointsWith(*in);
  const Vec3f* from = in->points().data();
  const Vec3f* to = out->points().data();
  Vec3f* points = moved ? result->overwritePoints().data() : nullptr;
  const std::vector<MixedChannel> perStrand = strandChannels(*in, *out, *result);
  const std::vector<MixedChannel> perPoint = pointChannels(*in, *out, *result);
  const auto& offsets = in->offsets();

  parallelRange(0, in->strandCount(), 256, [&](std::size_t first, std::size_t last) {
    FieldReader reader(affect);
    for (std::size_t strand = first; strand < last; ++strand) {
      if (!perStrand.empty()) {
        const float weight = weightOf(reader.strand(strand));
        for (const MixedChannel& channel : perStrand) channel.mix(strand, weight);
      }
      const std::size_t begin = offsets[strand], count = offsets[strand + 1] - begin;
      const float* weights = reader.points(strand, count);
      for (std::size_t i = 0; i < count; ++i) {
        const std::size_t point = begin + i;
        const float weight = weightOf(weights[i]);
        if (moved) {
          points[point] = weight >= 1.0f ? to[point] : lerp(from[point], to[point], weight);
        }
        for (const MixedChannel& channel : perPoint) channel.mix(point, weight);
      }
    }
  });
  return StrandSetPtr(std::move(result));
}

}  // namespace kestrane
