// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <cmath>
#include <stdexcept>

#include "core/base/json.h"
#include "core/base/parallel.h"
#include "core/guides/document_text.h"
#include "core/guides/guide_hierarchy.h"
#include "core/guides/guide_json_scan.h"

namespace kestrane {

namespace {

using detail::appendField;
using detail::appendKey;
using detail::appendValue;

constexpr std::int64_t guideDataVersion = 1;
constexpr std::size_t writeGrain = 16;
constexpr std::size_t readGrain = 4;

/// Objects list their keys in sorted order, so that equal data are equal texts.
template <class Map>
void appendMap(std::string& text, std::string_view key, const Map& map) {
  appendKey(text, key);
  text += '{';
  for (const auto& [name, value] : map) appendField(text, name, value);
  text += '}';
}

std::string guideText(const GuideRecord& guide) {
  std::string text = "{";
  text.reserve(256 + 12 * 3 * (guide.points.size() + guide.rootLocal.size()));
  if (!guide.attributes.empty()) appendMap(text, "attributes", guide.attributes);
  appendField(text, "frameUp", guide.frameUp);
  // A child without offsets (its parent cannot be followed) has its shape in its points alone.
  const bool byOffsets = guide.follows() && !guide.offsets.empty();
  const bool bound = !byOffsets && !guide.rootLocal.empty();
  if (bound) appendField(text, "frameUpLocal", guide.frameUpLocal);
  appendField(text, "group", guide.group);
  appendField(text, "id", guide.id);
  if (guide.locked) appendField(text, "locked", true);
  if (byOffsets) appendField(text, "offsets", guide.offsets);
  if (guide.parent != 0) appendField(text, "parent", guide.parent);
  if (!guide.pointAttributes.empty()) appendMap(text, "pointAttributes", guide.pointAttributes);
  if (!byOffsets) appendField(text, "points", guide.points);
  text += ",\"root\":[";
  appendValue(text, guide.root.face);
  text += ',';
  appendValue(text, guide.root.u);
  text += ',';
  appendValue(text, guide.root.v);
  text += ']';
  if (bound) appendField(text, "rootLocal", guide.rootLocal);
  text += ",\"tube\":{";
  appendField(text, "radius", guide.tube.radius);
  appendField(text, "twist", guide.tube.twist);
  return text += "}}";
}

template <class Read>
auto readOr(const Json& object, const char* key, Read read,
            std::invoke_result_t<Read, const Json&> fallback) {
  const auto found = object.find(key);
  return found == object.end() ? fallback : read(*found);
}

GuideGroup readGroup(const Json& json) {
  GuideGroup group;
  group.id = detail::readUint32(json.at("id"));
  group.name = detail::readString(json.at("name"));
  group.parent = readOr(json, "parent", detail::readUint32, 0u);
  return group;
}

GuideRecord readGuide(const Json& json) {
  GuideRecord guide;
  guide.id = detail::readUint64(json.at("id"));
  guide.group = detail::readUint32(json.at("group"));
  guide.parent = readOr(json, "parent", detail::readUint64, std::uint64_t{0});
  guide.locked = readOr(json, "locked", detail::readBool, false);
  const Json& root = detail::readArray(json.at("root"));
  if (root.size() != 3) throw std::runtime_error("a root needs a face and 2 weights");
  guide.root = {detail::readInt32(root[0]), detail::readFloat(root[1]), detail::readFloat(root[2])};
  // Some slack is rounding; far outside its triangle a root would throw its guide anywhere.
  if (std::abs(guide.root.u) > 2.0f || std::abs(guide.root.v) > 2.0f) {
    throw std::runtime_error("a root's weights are no place on a triangle");
  }
  guide.frameUp = detail::readVector(json.at("frameUp"));
  const Json& tube = detail::readObject(json.at("tube"));
  guide.tube.radius = detail::readFloats(tube.at("radius"));
  guide.tube.twist = detail::readFloat(tube.at("twist"));
  if (const auto found = json.find("attributes"); found != json.end()) {
    for (const auto& [name, value] : detail::readObject(*found).items()) {
      guide.attributes[name] = detail::readFloat(value);
    }
  }
  guide.points = readOr(json, "points", detail::readVectors, {});
  if (guide.follows()) {
    guide.offsets = readOr(json, "offsets", detail::readVectors, {});
    // One per point: those that are missing are zero.
    if (!guide.points.empty() && !guide.offsets.empty()) guide.offsets.resize(guide.points.size());
  } else {
    guide.rootLocal = readOr(json, "rootLocal", detail::readVectors, {});
    guide.frameUpLocal = readOr(json, "frameUpLocal", detail::readVector, guide.frameUpLocal);
    const bool bound = !guide.rootLocal.empty() && guide.rootLocal.size() == guide.points.size();
    if (!bound) guide.unbind();
  }
  if (const auto found = json.find("pointAttributes"); found != json.end()) {
    for (const auto& [name, value] : detail::readObject(*found).items()) {
      std::vector<float> values = detail::readFloats(value);
      if (values.size() != guide.pointCount()) {
        throw std::runtime_error("point attribute '" + name + "' has " +
                                 std::to_string(values.size()) + " values for " +
                                 std::to_string(guide.pointCount()) + " points");
      }
      if (!values.empty()) guide.pointAttributes[name] = std::move(values);
    }
  }
  return guide;
}

/// Reads every element in parallel; of several faults the first in the document is reported, so
/// that the message does not depend on the threads.
template <class Element, class Read>
std::vector<GuideRecord> readGuides(const std::vector<Element>& elements, Read read) {
  std::vector<GuideRecord> guides(elements.size());
  std::vector<std::string> faults(elements.size());
  parallelRange(0, elements.size(), readGrain, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
      try {
        guides[i] = read(elements[i]);
      } catch (const std::exception& error) {
        faults[i] = jsonMessage(error);
      }
    }
  });
  for (const std::string& fault : faults) {
    if (!fault.empty()) throw std::runtime_error(fault);
  }
  return guides;
}

}  // namespace

std::string GuideHierarchy::toJson() const {
  std::string head = "{\"groups\":";
  detail::appendList(head, groups_, [](std::string& text, const GuideGroup& group) {
    text += '{';
    appendField(text, "id", group.id);
    appendField(text, "name", group.name);
    appendField(text, "parent", group.parent);
    text += '}';
  });
  head += ",\"guides\":[";
  std::vector<std::string> parts(guides_.size());
  parallelRange(0, guides_.size(), writeGrain, [&](std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) parts[i] = guideText(guides_[i]);
  });
  std::string tail = "]";
  if (scalpTopology_ != 0) appendField(tail, "scalpTopology", scalpTopology_);
  tail += ",\"version\":" + std::to_string(guideDataVersion) + "}";
  std::size_t size = head.size() + parts.size() + tail.size();
  for (const std::string& part : parts) size += part.size();
  std::string text;
  text.reserve(size);
  text += head;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text += ',';
    text += parts[i];
  }
  return text += tail;
}

GuideHierarchy GuideHierarchy::fromJson(std::string_view text) {
  try {
    return read(trimmed(text));
  } catch (const std::exception& error) {
    throw std::runtime_error("invalid guide data: " + jsonMessage(error));
  }
}

GuideHierarchy GuideHierarchy::read(std::string_view text) {
  GuideHierarchy hierarchy;
  if (text.empty()) return hierarchy;
  const auto spans = detail::findGuideSpans(text);
  const Json document = parseJson(spans ? std::string_view(spans->outside) : text);
  checkVersion(document, "guide data", guideDataVersion);
  if (const auto found = document.find("scalpTopology"); found != document.end()) {
    hierarchy.scalpTopology_ = detail::readUint64(*found);
  }
  for (const Json& group : detail::readArray(document.at("groups"))) {
    hierarchy.groups_.push_back(readGroup(group));
  }
  if (spans) {
    hierarchy.guides_ = readGuides(
        spans->elements, [](std::string_view element) { return readGuide(parseJson(element)); });
  } else {
    std::vector<const Json*> elements;
    for (const Json& element : detail::readArray(document.at("guides"))) {
      elements.push_back(&element);
    }
    hierarchy.guides_ =
        readGuides(elements, [](const Json* element) { return readGuide(*element); });
  }
  hierarchy.indexRead();
  hierarchy.updateFromScalp(nullptr);
  return hierarchy;
}

void GuideHierarchy::indexRead() {
  std::unordered_set<std::string_view> names;
  for (std::uint32_t i = 0; i < groups_.size(); ++i) {
    const GuideGroup& group = groups_[i];
    if (group.id == 0) throw std::runtime_error("group '" + group.name + "' has the id 0");
    if (!groupIndex_.emplace(group.id, i).second) {
      throw std::runtime_error("two groups have the id " + std::to_string(group.id));
    }
    if (!names.insert(group.name).second) {
      throw std::runtime_error("two groups are named '" + group.name + "'");
    }
    nextGroupId_ = std::max(nextGroupId_, group.id + 1);
  }
  for (const GuideGroup& group : groups_) {
    if (group.parent != 0 && !findGroup(group.parent)) {
      throw std::runtime_error("group '" + group.name + "' has the unknown parent group " +
                               std::to_string(group.parent));
    }
  }
  groupLevels();
  rebuildGuideIndex();
  for (std::size_t i = 0; i < guides_.size(); ++i) {
    const GuideRecord& guide = guides_[i];
    const std::string name = "guide " + std::to_string(guide.id);
    if (guide.id == 0) throw std::runtime_error("a guide has the id 0");
    if (guideIndex_.at(guide.id) != i) {
      throw std::runtime_error("two guides have the id " + std::to_string(guide.id));
    }
    const GuideGroup* home = findGroup(guide.group);
    if (!home) {
      throw std::runtime_error(name + " is in the unknown group " + std::to_string(guide.group));
    }
    // A parent that is gone is allowed: its child stays as it is.
    const GuideRecord* parent = findGuide(guide.parent);
    if (parent && parent->group != home->parent) {
      throw std::runtime_error(name + " follows guide " + std::to_string(parent->id) +
                               ", which is not in the parent group");
    }
    nextGuideId_ = std::max(nextGuideId_, guide.id + 1);
  }
}

}  // namespace kestrane
