// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/flow.h"

#include <stdexcept>

#include "core/base/json.h"
#include "core/guides/document_text.h"
#include "core/guides/guide_frames.h"
#include "core/guides/surface_point_text.h"

namespace kestrane {

namespace {

using detail::appendField;

constexpr std::int64_t flowVersion = 1;

FlowPin readPin(const Json& json) {
  FlowPin pin;
  pin.point = detail::readSurfacePoint(json);
  pin.direction = detail::readVector(json.at("dir"));
  if (json.contains("line")) pin.line = detail::readInt32(json.at("line"));
  if (json.contains("seq")) pin.seq = detail::readInt32(json.at("seq"));
  return pin;
}

FlowSink readSink(const Json& json) {
  FlowSink sink;
  sink.point = detail::readSurfacePoint(json);
  sink.angle = detail::readFloat(json.at("angle"));
  sink.radius = detail::readFloat(json.at("radius"));
  return sink;
}

}  // namespace

FlowData flowFromJson(std::string_view text) {
  return detail::readDocument<FlowData>(text, [](const Json& document) {
    checkVersion(document, "flow data", flowVersion);
    FlowData flow;
    for (const Json& pin : detail::readArray(document.at("pins"))) {
      flow.pins.push_back(readPin(pin));
    }
    for (const Json& sink : detail::readArray(document.at("sinks"))) {
      flow.sinks.push_back(readSink(sink));
    }
    return flow;
  });
}

std::string flowToJson(const FlowData& flow) {
  std::string text = "{";
  detail::appendKey(text, "pins");
  detail::appendList(text, flow.pins, [](std::string& out, const FlowPin& pin) {
    out += '{';
    detail::appendSurfacePoint(out, pin.point);
    appendField(out, "dir", pin.direction);
    if (pin.line >= 0) {
      appendField(out, "line", pin.line);
      appendField(out, "seq", pin.seq);
    }
    out += '}';
  });
  detail::appendKey(text, "sinks");
  detail::appendList(text, flow.sinks, [](std::string& out, const FlowSink& sink) {
    out += '{';
    detail::appendSurfacePoint(out, sink.point);
    appendField(out, "angle", sink.angle);
    appendField(out, "radius", sink.radius);
    out += '}';
  });
  appendField(text, "version", flowVersion);
  return text += '}';
}

FlowPin makePin(const ScalpMesh& scalp, StrandRoot point, Vec3f direction) {
  if (!scalp.hasFace(point.face)) {
    throw std::invalid_argument("flow pin: not a point on the scalp");
  }
  const SurfaceFrame frame = surfaceFrameAt(scalp, point);
  const Vec3f flat = direction - frame.normal * dot(frame.normal, direction);
  // Written so that a direction that is not a number is refused too.
  if (!(length(flat) >= 1e-8f)) {
    throw std::invalid_argument("flow pin: the direction is along the surface normal");
  }
  const Vec3f unit = normalize(flat);
  return {point, {dot(unit, frame.tangent), dot(unit, frame.bitangent), 0.0f}};
}

float sinkAngle(std::string_view kind) {
  if (kind == "whorl") return 70.0f;
  if (kind == "whorlcw") return -70.0f;
  if (kind == "converge") return 180.0f;
  if (kind == "part") return 0.0f;
  throw std::invalid_argument("flow sink: unknown kind '" + std::string(kind) +
                              "' (whorl, whorlcw, converge, part)");
}

}  // namespace kestrane
