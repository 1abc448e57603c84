// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "core/base/hash.h"
#include "core/guides/guide_hierarchy.h"
#include "tests/support/groom_checks.h"
#include "tests/support/test_meshes.h"

namespace kestrane::test {

/// The text of the exception of the wanted type that the call throws.
template <class Exception, class Call>
std::string thrownBy(Call call) {
  try {
    call();
  } catch (const Exception& error) {
    return error.what();
  } catch (const std::exception& error) {
    return std::string("another kind of exception: ") + error.what();
  }
  return "nothing thrown";
}

/// A curve that rises from the root while it winds, so that no frame of it is special.
inline std::vector<Vec3f> windingCurve(Vec3f root, std::size_t count, float height = 4.0f) {
  std::vector<Vec3f> points(count);
  for (std::size_t i = 0; i < count; ++i) {
    const float t = count < 2 ? 0.0f : static_cast<float>(i) / static_cast<float>(count - 1);
    points[i] =
        root + Vec3f{std::sin(4.0f * t) * 0.7f * t, height * t, (1.0f - std::cos(3.0f * t)) * 0.6f};
  }
  return points;
}

/// `count` guides of the group "guides" in a row on the ground, 2 cm apart, each with children in
/// "locks" and each of these with children in "strays".
inline GuideHierarchy makeFamily(std::size_t count, int childrenEach = 3) {
  GuideHierarchy hierarchy;
  const std::uint32_t top = hierarchy.addGroup("guides", 0);
  for (std::size_t i = 0; i < count; ++i) {
    hierarchy.addGuide(top, windingCurve({2.0f * static_cast<float>(i) + 1.0f, 0.0f, 3.0f}, 9),
                       {{0.5f, 0.8f, 0.3f}, 0.4f});
  }
  ChildSettings settings;
  settings.count = childrenEach;
  settings.jitter = 0.3f;
  settings.twist = 0.5f;
  const std::uint32_t locks = hierarchy.generateChildren(top, "locks", settings);
  settings.count = 2;
  hierarchy.generateChildren(locks, "strays", settings);
  return hierarchy;
}

inline void expectNearPoints(const std::vector<Vec3f>& found, const std::vector<Vec3f>& wanted,
                             float tolerance) {
  ASSERT_EQ(found.size(), wanted.size());
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_LE(distance(found[i], wanted[i]), tolerance)
        << "point " << i << " is " << testing::PrintToString(found[i]) << " and not "
        << testing::PrintToString(wanted[i]);
  }
}

}  // namespace kestrane::test
