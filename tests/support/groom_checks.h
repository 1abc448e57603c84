// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <unordered_set>

#include "core/base/hash.h"
#include "core/data/polyline.h"
#include "core/data/strand_set.h"

namespace kestrane {

/// How failed checks show these types.
inline void PrintTo(const Vec3f& a, std::ostream* out) {
  *out << "(" << a.x << ", " << a.y << ", " << a.z << ")";
}
inline void PrintTo(const StrandRoot& a, std::ostream* out) {
  *out << "face " << a.face << " (" << a.u << ", " << a.v << ")";
}

}  // namespace kestrane

/// What tests of several floors ask of strands. Every check is an EXPECT: it reports the first
/// fault that it meets and lets the test go on.
namespace kestrane::test {

/// A deterministic set of wavy strands that lean over as they rise, 2 to 6 cm long and rooted 0.5
/// cm apart on the ground plane, with thinning widths. IDs are unique and neither 0 nor the index;
/// roots lie on face 0, 1, ... (two strands a face). No channels.
inline StrandSet makeStrands(std::size_t count, std::size_t pointsPerStrand,
                             std::uint64_t seed = 1) {
  StrandSet set;
  const std::vector<std::uint32_t> counts(count, static_cast<std::uint32_t>(pointsPerStrand));
  set.resizeFromCounts(counts);
  auto& ids = set.mutableIds();
  auto& roots = set.mutableRoots();
  auto& points = set.mutablePoints();
  auto& widths = set.mutableWidths();
  const std::size_t columns = static_cast<std::size_t>(std::sqrt(static_cast<double>(count))) + 1;
  for (std::size_t i = 0; i < count; ++i) {
    // The index lies in the low bits, which keeps IDs apart.
    ids[i] = (mix64(seed ^ 0x57A9D5) << 32) + i + 1000;
    const auto draw = [&](std::uint64_t which) {
      return unitFloat(hashCombine(ids[i], seed + which));
    };
    roots[i] = {static_cast<std::int32_t>(i / 2), 0.5f * draw(0), 0.5f * draw(1)};
    const Vec3f root{0.5f * static_cast<float>(i % columns), 0.0f,
                     0.5f * static_cast<float>(i / columns)};
    const float height = 1.5f + 3.5f * draw(2), lean = draw(3) - 0.5f, wave = 0.3f * draw(4);
    const float phase = 6.2831853f * draw(5);
    for (std::size_t k = 0; k < pointsPerStrand; ++k) {
      const float t = pointsPerStrand < 2
                          ? 0.0f
                          : static_cast<float>(k) / static_cast<float>(pointsPerStrand - 1);
      const std::size_t p = i * pointsPerStrand + k;
      points[p] = root + Vec3f{height * lean * t * t + wave * t * std::sin(7.0f * t + phase),
                               height * t, wave * t * std::cos(5.0f * t + phase)};
      widths[p] = 0.02f * (1.0f - 0.8f * t);
    }
  }
  return set;
}

/// The set obeys its own rules, every number in it is finite, no width is negative and no two
/// strands have one ID.
inline void expectValidGroom(const StrandSet& set) {
  std::string error;
  EXPECT_TRUE(set.validate(&error)) << error;
  if (!error.empty()) return;
  std::unordered_set<std::uint64_t> seen;
  for (std::size_t i = 0; i < set.strandCount(); ++i) {
    if (!seen.insert(set.ids()[i]).second) {
      ADD_FAILURE() << "strand " << i << " has an ID that another strand has: " << set.ids()[i];
      break;
    }
  }
  for (std::size_t i = 0; i < set.strandCount(); ++i) {
    const StrandRoot root = set.roots()[i];
    if (root.face < -1 || !std::isfinite(root.u) || !std::isfinite(root.v)) {
      ADD_FAILURE() << "strand " << i << " has the root " << root.face << " " << root.u << " "
                    << root.v;
      break;
    }
  }
  for (std::size_t i = 0; i < set.pointCount(); ++i) {
    const Vec3f point = set.points()[i];
    const float width = set.widths()[i];
    if (!isFinite(point) || !std::isfinite(width) || width < 0.0f) {
      ADD_FAILURE() << "point " << i << " is (" << point.x << ", " << point.y << ", " << point.z
                    << "), its width " << width;
      break;
    }
  }
  const auto expectFinite = [](const std::string& name, const Array<float>& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (!std::isfinite(values[i])) {
        ADD_FAILURE() << "channel '" << name << "' holds " << values[i] << " at " << i;
        break;
      }
    }
  };
  for (const std::string& name : set.strandChannelNames()) {
    expectFinite(name, *set.strandChannel(name));
  }
  for (const std::string& name : set.pointChannelNames()) {
    expectFinite(name, *set.pointChannel(name));
  }
}

/// Strand i has the same length in both sets, within `tolerance` times the length before.
inline void expectLengthsKept(const StrandSet& before, const StrandSet& after, float tolerance) {
  ASSERT_EQ(before.strandCount(), after.strandCount());
  for (std::size_t i = 0; i < before.strandCount(); ++i) {
    const float wanted = polylineLength(before.strandPoints(i));
    const float found = polylineLength(after.strandPoints(i));
    // Written so that a length that is not a number fails.
    if (!(std::abs(found - wanted) <= tolerance * wanted)) {
      ADD_FAILURE() << "strand " << i << " was " << wanted << " long and is " << found;
      return;
    }
  }
}

namespace detail {

template <class T>
std::string firstDifference(const std::string& name, const Array<T>& a, const Array<T>& b) {
  if (a.size() != b.size()) {
    return name + " have " + std::to_string(a.size()) + " and " + std::to_string(b.size()) +
           " elements";
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::memcmp(&a[i], &b[i], sizeof(T)) != 0) {
      return name + " differ at " + std::to_string(i) + ": " + testing::PrintToString(a[i]) +
             " and " + testing::PrintToString(b[i]);
    }
  }
  return {};
}

}  // namespace detail

/// In words, where two sets begin to differ; empty if all their bytes are equal. Attachments and
/// channel defaults are not looked at.
inline std::string describeDifference(const StrandSet& a, const StrandSet& b) {
  using detail::firstDifference;
  std::string text = firstDifference("ids", a.ids(), b.ids());
  if (text.empty()) text = firstDifference("offsets", a.offsets(), b.offsets());
  if (text.empty()) text = firstDifference("roots", a.roots(), b.roots());
  if (text.empty()) text = firstDifference("points", a.points(), b.points());
  if (text.empty()) text = firstDifference("widths", a.widths(), b.widths());
  if (text.empty() && a.strandChannelNames() != b.strandChannelNames()) {
    text = "strand channels are " + testing::PrintToString(a.strandChannelNames()) + " and " +
           testing::PrintToString(b.strandChannelNames());
  }
  if (text.empty() && a.pointChannelNames() != b.pointChannelNames()) {
    text = "point channels are " + testing::PrintToString(a.pointChannelNames()) + " and " +
           testing::PrintToString(b.pointChannelNames());
  }
  if (!text.empty()) return text;
  for (const std::string& name : a.strandChannelNames()) {
    text = firstDifference("strand channel '" + name + "' values", *a.strandChannel(name),
                           *b.strandChannel(name));
    if (!text.empty()) return text;
  }
  for (const std::string& name : a.pointChannelNames()) {
    text = firstDifference("point channel '" + name + "' values", *a.pointChannel(name),
                           *b.pointChannel(name));
    if (!text.empty()) return text;
  }
  return {};
}

/// Both sets hold the same bytes, and say so by their hashes too.
inline void expectSameStrands(const StrandSet& a, const StrandSet& b) {
  EXPECT_EQ(describeDifference(a, b), "");
  EXPECT_EQ(a.contentHash(), b.contentHash());
}

}  // namespace kestrane::test
