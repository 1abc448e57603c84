// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/strand_set.h"

#include <utility>

#include "core/base/bulk.h"

namespace kestrane {

namespace {

std::atomic<std::uint64_t> copiesAvoided = 0;

/// The offsets of every set without strands. Never destroyed: sets may outlive statics.
const SharedArray<std::uint64_t>& noOffsets() {
  static const auto* offsets = [] {
    auto* made = new SharedArray<std::uint64_t>(1);
    made->overwrite(1)[0] = 0;
    return made;
  }();
  return *offsets;
}

template <class T>
void takeArray(SharedArray<T>& mine, SharedArray<T>& others) {
  if (&mine == &others) return;
  if (others.unique()) {
    mine = std::move(others);
    copiesAvoided.fetch_add(1, std::memory_order_relaxed);
  } else {
    mine = others;
  }
}

template <class Map>
std::vector<std::string> namesOf(const Map& channels) {
  std::vector<std::string> names;
  names.reserve(channels.size());
  for (const auto& [name, channel] : channels) names.push_back(name);
  return names;
}

}  // namespace

StrandSet::StrandSet() : offsets_(noOffsets()) {}

StrandSet::StrandSet(const StrandSet& other)
    : cardMesh(other.cardMesh),
      featherLayers(other.featherLayers),
      scaleMeshes(other.scaleMeshes),
      ids_(other.ids_),
      roots_(other.roots_),
      offsets_(other.offsets_),
      points_(other.points_),
      widths_(other.widths_),
      strandChannels_(other.strandChannels_),
      pointChannels_(other.pointChannels_) {}

StrandSet::StrandSet(StrandSet&& other) noexcept : StrandSet() {
  *this = std::move(other);
}

StrandSet& StrandSet::operator=(const StrandSet& other) {
  if (this != &other) *this = StrandSet(other);
  return *this;
}

StrandSet& StrandSet::operator=(StrandSet&& other) noexcept {
  if (this == &other) return *this;
  dropExtents();
  if (other.extentValid_.load(std::memory_order_acquire)) {
    extentCache_ = other.extentCache_;
    extentPieces_ = other.extentPieces_;
    extentValid_.store(true, std::memory_order_release);
  }
  other.dropExtents();
  cardMesh = std::exchange(other.cardMesh, nullptr);
  featherLayers = std::exchange(other.featherLayers, {});
  scaleMeshes = std::exchange(other.scaleMeshes, {});
  ids_ = std::move(other.ids_);
  roots_ = std::move(other.roots_);
  offsets_ = std::exchange(other.offsets_, noOffsets());
  points_ = std::move(other.points_);
  widths_ = std::move(other.widths_);
  strandChannels_ = std::exchange(other.strandChannels_, {});
  pointChannels_ = std::exchange(other.pointChannels_, {});
  return *this;
}

StrandSet::~StrandSet() = default;

const Array<float>* StrandSet::find(const Channels& channels, std::string_view name) {
  const auto found = channels.find(name);
  return found == channels.end() ? nullptr : &found->second.values.read();
}

const Array<float>* StrandSet::strandChannel(std::string_view name) const {
  return find(strandChannels_, name);
}
const Array<float>* StrandSet::pointChannel(std::string_view name) const {
  return find(pointChannels_, name);
}

float StrandSet::strandChannelDefault(std::string_view name) const {
  const auto found = strandChannels_.find(name);
  return found == strandChannels_.end() ? 0.0f : found->second.defaultValue;
}
float StrandSet::pointChannelDefault(std::string_view name) const {
  const auto found = pointChannels_.find(name);
  return found == pointChannels_.end() ? 0.0f : found->second.defaultValue;
}

std::vector<std::string> StrandSet::strandChannelNames() const {
  return namesOf(strandChannels_);
}
std::vector<std::string> StrandSet::pointChannelNames() const {
  return namesOf(pointChannels_);
}

std::size_t StrandSet::uniformPointCount() const {
  const std::size_t strands = strandCount();
  const auto& starts = offsets();
  if (strands == 0 || starts.size() != strands + 1 || pointCount() % strands != 0) return 0;
  const std::size_t each = pointCount() / strands;
  // Block by block, so that a compiler can compare several at once.
  constexpr std::size_t block = 1024;
  for (std::size_t first = 0; first < strands; first += block) {
    const std::size_t last = std::min(strands, first + block);
    std::uint64_t differences = 0;
    for (std::size_t i = first; i < last; ++i) differences |= (starts[i + 1] - starts[i]) ^ each;
    if (differences != 0) return 0;
  }
  return each;
}

Array<std::uint64_t>& StrandSet::mutableIds() {
  return ids_.write(arrayMutex_);
}
Array<StrandRoot>& StrandSet::mutableRoots() {
  return roots_.write(arrayMutex_);
}
Array<std::uint64_t>& StrandSet::mutableOffsets() {
  dropExtents();
  return offsets_.write(arrayMutex_);
}
Array<Vec3f>& StrandSet::mutablePoints() {
  dropExtents();
  return points_.write(arrayMutex_);
}
Array<float>& StrandSet::mutableWidths() {
  return widths_.write(arrayMutex_);
}
Array<Vec3f>& StrandSet::overwritePoints() {
  dropExtents();
  return points_.overwrite(pointCount());
}
Array<float>& StrandSet::overwriteWidths() {
  return widths_.overwrite(pointCount());
}

Array<float>* StrandSet::writable(Channels& channels, std::string_view name) {
  const auto found = channels.find(name);
  return found == channels.end() ? nullptr : &found->second.values.write(arrayMutex_);
}

Array<float>* StrandSet::mutableStrandChannel(std::string_view name) {
  return writable(strandChannels_, name);
}
Array<float>* StrandSet::mutablePointChannel(std::string_view name) {
  return writable(pointChannels_, name);
}

Array<float>& StrandSet::overwrite(Channels& channels, std::string_view name, float defaultValue,
                                   std::size_t count) {
  auto place = channels.find(name);
  if (place == channels.end()) {
    Channel made{SharedArray<float>(count), defaultValue};
    place = channels.emplace(std::string(name), std::move(made)).first;
  }
  Array<float>& values = place->second.values.overwrite(count);
  place->second.defaultValue = defaultValue;
  return values;
}

Array<float>& StrandSet::overwriteStrandChannel(std::string_view name, float defaultValue) {
  return overwrite(strandChannels_, name, defaultValue, strandCount());
}
Array<float>& StrandSet::overwritePointChannel(std::string_view name, float defaultValue) {
  return overwrite(pointChannels_, name, defaultValue, pointCount());
}

Array<float>& StrandSet::addStrandChannel(std::string_view name, float defaultValue) {
  Array<float>& values = overwriteStrandChannel(name, defaultValue);
  fillElements(values.data(), values.size(), defaultValue);
  return values;
}
Array<float>& StrandSet::addPointChannel(std::string_view name, float defaultValue) {
  Array<float>& values = overwritePointChannel(name, defaultValue);
  fillElements(values.data(), values.size(), defaultValue);
  return values;
}

void StrandSet::removeStrandChannel(std::string_view name) {
  const auto found = strandChannels_.find(name);
  if (found != strandChannels_.end()) strandChannels_.erase(found);
}
void StrandSet::removePointChannel(std::string_view name) {
  const auto found = pointChannels_.find(name);
  if (found != pointChannels_.end()) pointChannels_.erase(found);
}

void StrandSet::shareIdsFrom(const StrandSet& other) {
  if (other.strandCount() != strandCount()) dropExtents();
  ids_ = other.ids_;
}
void StrandSet::shareRootsFrom(const StrandSet& other) {
  roots_ = other.roots_;
}
void StrandSet::sharePointsFrom(const StrandSet& other) {
  dropExtents();
  points_ = other.points_;
}
void StrandSet::shareWidthsFrom(const StrandSet& other) {
  widths_ = other.widths_;
}

bool StrandSet::share(Channels& channels, std::string_view name, const Channels& others,
                      std::size_t count) {
  const auto found = others.find(name);
  if (found == others.end() || found->second.values.read().size() != count) return false;
  channels.insert_or_assign(std::string(name), Channel(found->second));
  return true;
}

bool StrandSet::shareStrandChannelFrom(std::string_view name, const StrandSet& other) {
  return share(strandChannels_, name, other.strandChannels_, strandCount());
}
bool StrandSet::sharePointChannelFrom(std::string_view name, const StrandSet& other) {
  return share(pointChannels_, name, other.pointChannels_, pointCount());
}

void StrandSet::takePointsFrom(StrandSet& other) {
  if (this == &other) return;
  dropExtents();
  other.dropExtents();
  takeArray(points_, other.points_);
}
void StrandSet::takeWidthsFrom(StrandSet& other) {
  takeArray(widths_, other.widths_);
}

bool StrandSet::take(Channels& channels, std::string_view name, Channels& others,
                     std::size_t count) {
  const auto found = others.find(name);
  if (found == others.end() || found->second.values.read().size() != count) return false;
  Channel& mine = channels.try_emplace(std::string(name)).first->second;
  takeArray(mine.values, found->second.values);
  mine.defaultValue = found->second.defaultValue;
  return true;
}

bool StrandSet::takeStrandChannelFrom(std::string_view name, StrandSet& other) {
  return take(strandChannels_, name, other.strandChannels_, strandCount());
}
bool StrandSet::takePointChannelFrom(std::string_view name, StrandSet& other) {
  return take(pointChannels_, name, other.pointChannels_, pointCount());
}

std::uint64_t StrandSet::avoidedCopies() {
  return copiesAvoided.load(std::memory_order_relaxed);
}

bool StrandSet::shares(const Channels& channels, std::string_view name, const Channels& others) {
  const auto mine = channels.find(name);
  const auto found = others.find(name);
  return mine != channels.end() && found != others.end() &&
         mine->second.values.sharesWith(found->second.values);
}

bool StrandSet::sharesStrandChannelWith(std::string_view name, const StrandSet& other) const {
  return shares(strandChannels_, name, other.strandChannels_);
}
bool StrandSet::sharesPointChannelWith(std::string_view name, const StrandSet& other) const {
  return shares(pointChannels_, name, other.pointChannels_);
}

bool StrandSet::validate(std::string* error) const {
  const auto fail = [&](std::string text) {
    if (error != nullptr) *error = std::move(text);
    return false;
  };
  const auto& starts = offsets();
  if (starts.size() != strandCount() + 1) return fail("offsets size must be strandCount + 1");
  if (roots().size() != strandCount()) return fail("roots size must equal strandCount");
  if (starts.front() != 0) return fail("offsets must start at 0");
  if (starts.back() != pointCount()) return fail("last offset must equal pointCount");
  for (std::size_t i = 1; i < starts.size(); ++i) {
    if (starts[i] < starts[i - 1]) return fail("offsets must be non-decreasing");
  }
  if (widths().size() != pointCount()) return fail("widths size must equal pointCount");
  for (const auto& [name, channel] : strandChannels_) {
    if (channel.values.read().size() != strandCount()) {
      return fail("strand channel '" + name + "' has wrong size");
    }
  }
  for (const auto& [name, channel] : pointChannels_) {
    if (channel.values.read().size() != pointCount()) {
      return fail("point channel '" + name + "' has wrong size");
    }
  }
  return true;
}

}  // namespace kestrane
