// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/finite_check.h"

#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

#include "core/guides/correctives.h"
#include "core/guides/flow.h"
#include "core/guides/guide_hierarchy.h"
#include "core/guides/parts.h"
#include "core/session/groom_text.h"

namespace kestrane {

namespace {

void check(std::string_view key, std::initializer_list<double> numbers) {
  GroomText::checkFinite(key, std::span(numbers.begin(), numbers.size()));
}

template <class Value>
void check(std::string_view key, const std::vector<Value>& values) {
  GroomText::checkFinite(key, std::span(values));
}

}  // namespace

void checkFinite(const GuideHierarchy& hierarchy) {
  for (const GuideRecord& guide : hierarchy.guides()) {
    check("hierarchy.points", guide.points);
    check("hierarchy.rootLocal", guide.rootLocal);
    check("hierarchy.offsets", guide.offsets);
    for (const auto& [name, values] : guide.pointAttributes) {
      check("hierarchy.pointAttributes", values);
    }
    for (const auto& [name, value] : guide.attributes) check("hierarchy.attributes", {value});
    check("hierarchy.tube", guide.tube.radius);
    check("hierarchy.tube", {guide.tube.twist});
    check("hierarchy.root", {guide.root.u, guide.root.v});
    check("hierarchy.frameUp", {guide.frameUp.x, guide.frameUp.y, guide.frameUp.z});
    const Vec3f local = guide.frameUpLocal;
    check("hierarchy.frameUpLocal", {local.x, local.y, local.z});
  }
}

void checkFinite(const PartData& parts) {
  for (const Part& part : parts.parts) {
    std::vector<float> numbers;
    for (const StrandRoot& point : part.points) numbers.insert(numbers.end(), {point.u, point.v});
    check("parts.points", numbers);
  }
}

void checkFinite(const CorrectiveData& correctives) {
  for (const CorrectiveLayer& layer : correctives.layers) {
    check("correctives.layers", {layer.time, layer.fadeIn, layer.fadeOut, layer.weight});
    std::vector<double> numbers;
    for (const auto& key : layer.weightCurve) {
      numbers.insert(numbers.end(), {key.time, key.weight});
    }
    check("correctives.weightCurve", numbers);
    for (const auto& [guide, offsets] : layer.offsets) check("correctives.offsets", offsets);
  }
}

void checkFinite(const FlowData& flow) {
  for (const FlowPin& pin : flow.pins) {
    const Vec3f direction = pin.direction;
    check("flow.pins", {pin.point.u, pin.point.v, direction.x, direction.y, direction.z});
  }
  for (const FlowSink& sink : flow.sinks) {
    check("flow.sinks", {sink.point.u, sink.point.v, sink.angle, sink.radius});
  }
}

}  // namespace kestrane
