// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cfloat>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/data/shared_array.h"
#include "core/data/strand_changes.h"

namespace kestrane {

// What Cards, feather and scale nodes attach to strands; a strand set only passes them along.
struct CardMesh;
struct FeatherLayer;
struct ScaleMesh;

/// The bounds of some strands.
struct Extent {
  Vec3f min{FLT_MAX, FLT_MAX, FLT_MAX};
  Vec3f max{-FLT_MAX, -FLT_MAX, -FLT_MAX};
  float maxLength = 0.0f;  // of the longest polyline
  bool finite = true;      // false if any coordinate is infinite or not a number
};

/// Bounds of all the strands of a set, piece by piece, which may outlive the set.
struct ExtentPieces {
  std::size_t strandCount = 0;
  std::size_t pointCount = 0;
  std::vector<Extent> pieces;
};
using ExtentPiecesPtr = std::shared_ptr<const ExtentPieces>;

/// The one container of hair: any number of polyline strands in flat arrays, with stable IDs,
/// attachment to the scalp, widths per point, and named float channels per strand and per point.
///
/// A copy shares every array and costs a few pointers; a write duplicates only the array written.
/// Reading accessors never allocate or detach. References from writing accessors are good until the
/// next copy, layout change or write of the same array. A const set may be read from many threads;
/// a set is written by one thread, except that a parallel loop may write disjoint elements of an
/// array which was detached before the loop.
class StrandSet {
 public:
  StrandSet();
  StrandSet(const StrandSet& other);
  StrandSet(StrandSet&& other) noexcept;
  StrandSet& operator=(const StrandSet& other);
  StrandSet& operator=(StrandSet&& other) noexcept;
  ~StrandSet();

  // Reading. Strand i owns the points offsets()[i] to offsets()[i + 1] - 1.
  std::size_t strandCount() const { return ids_.read().size(); }
  std::size_t pointCount() const { return points_.read().size(); }
  const Array<std::uint64_t>& ids() const { return ids_.read(); }
  const Array<StrandRoot>& roots() const { return roots_.read(); }
  const Array<std::uint64_t>& offsets() const { return offsets_.read(); }
  const Array<Vec3f>& points() const { return points_.read(); }
  const Array<float>& widths() const { return widths_.read(); }
  /// The channel's values, or null if the set has none of that name.
  const Array<float>* strandChannel(std::string_view name) const;
  const Array<float>* pointChannel(std::string_view name) const;
  /// What new strands or points get in the channel; 0 if the set has none of that name.
  float strandChannelDefault(std::string_view name) const;
  float pointChannelDefault(std::string_view name) const;
  std::vector<std::string> strandChannelNames() const;  // in name order
  std::vector<std::string> pointChannelNames() const;
  /// The point count that all strands have; 0 if they differ or there are none.
  std::size_t uniformPointCount() const;
  std::span<const Vec3f> strandPoints(std::size_t strand) const {
    const auto& range = offsets();
    return {points().data() + range[strand], points().data() + range[strand + 1]};
  }

  // Writing. mutablePoints and mutableOffsets also drop the cached extents.
  Array<std::uint64_t>& mutableIds();
  Array<StrandRoot>& mutableRoots();
  Array<std::uint64_t>& mutableOffsets();
  Array<Vec3f>& mutablePoints();
  Array<float>& mutableWidths();
  Array<float>* mutableStrandChannel(std::string_view name);  // null if there is none
  Array<float>* mutablePointChannel(std::string_view name);
  /// For a caller that writes every value of the current count: like the mutable form, but a shared
  /// array is replaced by one of unspecified values instead of being copied.
  Array<Vec3f>& overwritePoints();
  Array<float>& overwriteWidths();
  /// Creates or resets the channel, filled with its default to the current count.
  Array<float>& addStrandChannel(std::string_view name, float defaultValue);
  Array<float>& addPointChannel(std::string_view name, float defaultValue);
  /// The same with unspecified values, for a caller that writes all of them.
  Array<float>& overwriteStrandChannel(std::string_view name, float defaultValue);
  Array<float>& overwritePointChannel(std::string_view name, float defaultValue);
  void removeStrandChannel(std::string_view name);
  void removePointChannel(std::string_view name);

  /// Appends one strand; returns its index. Empty widths mean 1. Throws std::invalid_argument and
  /// leaves the set untouched when widths are neither empty nor as many as points.
  std::size_t addStrand(std::uint64_t id, StrandRoot root, std::span<const Vec3f> points,
                        std::span<const float> widths = {});
  /// Appends all strands of another set. Channels are the union of both sets'; a channel missing on
  /// one side is filled with the other's default. Attachments stay this set's. A set without
  /// strands brings its channels and detaches nothing.
  void append(const StrandSet& other);
  /// Removes all strands; channel names and defaults stay, attachments go.
  void clear();

  /// Which arrays resizeFromCounts leaves with unspecified values, for a caller that writes them.
  enum Keep : unsigned { keepNothing = 0, keepPoints = 1, keepWidths = 2 };
  /// A new layout of one strand per count: IDs 0, roots unattached, points zero, widths 1, channels
  /// at their defaults, except what `keep` names. Attachments stay. Where memory runs out the set
  /// is left without strands.
  void resizeFromCounts(std::span<const std::uint32_t> counts, unsigned keep = keepNothing);

  /// The strands at the indices, in that order (repeats allowed), with channels and attachments.
  /// All strands in their own order share every array. Throws std::invalid_argument for an index
  /// past the last strand.
  StrandSet subset(std::span<const std::uint32_t> indices) const;

  // Sharing an array of another set without a copy. The channel forms return false and do nothing
  // if the other set lacks the channel or its size does not fit; they take the default too.
  void shareIdsFrom(const StrandSet& other);
  void shareRootsFrom(const StrandSet& other);
  void sharePointsFrom(const StrandSet& other);
  void shareWidthsFrom(const StrandSet& other);
  bool shareStrandChannelFrom(std::string_view name, const StrandSet& other);
  bool sharePointChannelFrom(std::string_view name, const StrandSet& other);
  /// Moves the array over when the other set is its sole owner (the other gets a fresh empty one)
  /// and counts one avoided copy; shares it otherwise.
  void takePointsFrom(StrandSet& other);
  void takeWidthsFrom(StrandSet& other);
  bool takeStrandChannelFrom(std::string_view name, StrandSet& other);
  bool takePointChannelFrom(std::string_view name, StrandSet& other);
  /// How many copies the take functions avoided, in this process.
  static std::uint64_t avoidedCopies();

  /// Whether both sets hold one and the same array: equal without looking at values.
  bool sharesPointsWith(const StrandSet& other) const { return points_.sharesWith(other.points_); }
  bool sharesWidthsWith(const StrandSet& other) const { return widths_.sharesWith(other.widths_); }
  bool sharesRootsWith(const StrandSet& other) const { return roots_.sharesWith(other.roots_); }
  bool sharesIdsWith(const StrandSet& other) const { return ids_.sharesWith(other.ids_); }
  bool sharesOffsetsWith(const StrandSet& other) const {
    return offsets_.sharesWith(other.offsets_);
  }
  bool sharesStrandChannelWith(std::string_view name, const StrandSet& other) const;
  bool sharesPointChannelWith(std::string_view name, const StrandSet& other) const;

  /// Bounds of the whole set; cached. May be called from several threads at once.
  Extent extent() const;
  /// The same, looking only at strands that changed and their next neighbours, where the previous
  /// set has this set's layout; at all of them otherwise.
  Extent extentAfter(const StrandSet& previous, const StrandChanges& changes) const {
    return extentAfter(previous.extentPieces(), changes);
  }
  /// The same after a set that is gone or was taken apart; `previous` may be null.
  Extent extentAfter(const ExtentPiecesPtr& previous, const StrandChanges& changes) const;
  /// What extent() has found; null where it has not been asked for.
  ExtentPiecesPtr extentPieces() const;

  /// Whether sizes and offsets agree; the first fault is written to `error`.
  bool validate(std::string* error = nullptr) const;
  /// Over all contents: IDs, roots, offsets, points, widths and channels.
  std::uint64_t contentHash() const;

  // Attachments, passed along by reference.
  std::shared_ptr<const CardMesh> cardMesh;
  std::vector<std::shared_ptr<const FeatherLayer>> featherLayers;
  std::vector<std::shared_ptr<const ScaleMesh>> scaleMeshes;

 private:
  friend class ExtentFinder;
  struct Channel {
    SharedArray<float> values;
    float defaultValue = 0.0f;
  };
  using Channels = std::map<std::string, Channel, std::less<>>;

  static const Array<float>* find(const Channels& channels, std::string_view name);
  static Array<float>& overwrite(Channels& channels, std::string_view name, float defaultValue,
                                 std::size_t count);
  static bool share(Channels& channels, std::string_view name, const Channels& others,
                    std::size_t count);
  static bool take(Channels& channels, std::string_view name, Channels& others, std::size_t count);
  static bool shares(const Channels& channels, std::string_view name, const Channels& others);
  Array<float>* writable(Channels& channels, std::string_view name);
  void extend(std::size_t strands, std::size_t points);
  void truncate(std::size_t strands, std::size_t points);
  void dropExtents();
  Extent keepExtents(std::vector<Extent> pieces) const;

  mutable std::mutex cacheMutex_;  // guards the two caches
  mutable std::shared_ptr<const Extent> extentCache_;
  mutable ExtentPiecesPtr extentPieces_;
  mutable std::atomic<bool> extentValid_ = false;
  SharedArray<std::uint64_t> ids_;
  SharedArray<StrandRoot> roots_;
  SharedArray<std::uint64_t> offsets_;
  SharedArray<Vec3f> points_;
  SharedArray<float> widths_;
  Channels strandChannels_;
  Channels pointChannels_;
  std::mutex arrayMutex_;  // guards the detaching of arrays
};

using StrandSetPtr = std::shared_ptr<const StrandSet>;

}  // namespace kestrane
