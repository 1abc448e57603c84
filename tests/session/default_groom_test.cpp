// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "core/base/json.h"
#include "core/base/parallel.h"
#include "core/guides/guide_hierarchy.h"
#include "core/session/groom_session.h"
#include "tests/support/groom_checks.h"
#include "tests/support/test_meshes.h"
#include "tests/support/verifying.h"

namespace kestrane {
namespace {

/// The entry of a node in a list of the statistics.
template <class T>
T of(const std::vector<std::pair<std::string, T>>& entries, const std::string& node) {
  for (const auto& [name, value] : entries) {
    if (name == node) return value;
  }
  ADD_FAILURE() << "no entry for " << node;
  return {};
}

/// How the same evaluations are made: each incremental result verified, results kept by the
/// session, or handed back to be taken apart. Only the last two recycle arrays.
enum class Mode { verified, kept, recycled };

void PrintTo(Mode mode, std::ostream* out) {
  *out << std::array{"verified", "kept", "recycled"}[static_cast<std::size_t>(mode)];
}

/// The whole default road: a sphere with guides, and every node of the default graph.
class DefaultGroom : public testing::TestWithParam<Mode> {
 protected:
  void SetUp() override {
    guides_ = std::make_shared<GuideHierarchy>();
    const std::uint32_t group = guides_->addGroup("guides", 0);
    for (int i = 0; i < 30; ++i) {
      const float y = 1.0f - 1.6f * (static_cast<float>(i) + 0.5f) / 30.0f;
      const float r = std::sqrt(1.0f - y * y), angle = 2.3999632f * static_cast<float>(i);
      const SurfaceHit hit =
          scalp_->closestPoint(Vec3f{r * std::cos(angle), y, r * std::sin(angle)} * 10.0f);
      std::vector<Vec3f> points;
      for (int k = 0; k < 8; ++k) {
        const float t = static_cast<float>(k) / 7.0f;
        points.push_back(hit.position + scalp_->normalAt(hit.root) * (6.0f * t) +
                         Vec3f{0, -4.0f * t * t, 0});
      }
      guides_->addGuide(group, std::move(points));
    }
    guides_->updateFromScalp(scalp_.get());
  }
  void TearDown() override { setThreadCount(0); }

  /// The default graph with about a thousand strands and one parameter changed.
  static std::string graphText(const std::string& node = {}, const std::string& param = {},
                               const Json& value = {}) {
    Json graph = parseJson(defaultGraphText());
    for (Json& entry : graph["nodes"]) {
      if (entry["name"] == "scatter") entry["params"]["density"] = 1.0;
      if (entry["name"] == node) entry["params"][param] = value;
    }
    return graph.dump();
  }

  void load(GroomSession& session, const std::string& graph) const {
    session.setScalp(scalp_);
    session.setGuides(guides_);
    ASSERT_FALSE(session.setGraph(graph));
  }

  static StrandSetPtr evaluate(GroomSession& session, double time = 0.0, bool lean = false) {
    EvaluateRequest request;
    request.viewport = true;
    request.time = time;
    request.lean = lean;
    request.recycle = GetParam() == Mode::recycled;
    for (const SessionMessage& message : session.evaluate(request)) {
      ADD_FAILURE() << message.text;
    }
    // Bounds are kept up with what changes; a copy knows none and looks at every point.
    const Extent kept = session.extent(), found = StrandSet(*session.strands()).extent();
    EXPECT_EQ(kept.min, found.min);
    EXPECT_EQ(kept.max, found.max);
    EXPECT_EQ(kept.maxLength, found.maxLength);
    return session.strands();
  }

  std::shared_ptr<GuideHierarchy> withMovedTips(std::initializer_list<std::size_t> which,
                                                float by) const {
    auto moved = std::make_shared<GuideHierarchy>(*guides_);
    for (const std::size_t i : which) {
      std::vector<Vec3f> points = moved->guides()[i].points;
      for (std::size_t k = 1; k < points.size(); ++k) {
        points[k].x += by * static_cast<float>(k) / static_cast<float>(points.size());
      }
      moved->setPoints(moved->guides()[i].id, std::move(points));
    }
    return moved;
  }

  const test::Verifying verifying_{GetParam() == Mode::verified};
  ScalpMeshPtr scalp_ = std::make_shared<const ScalpMesh>(test::makeSphere(16, 24, 10.0f));
  std::shared_ptr<GuideHierarchy> guides_;
};

TEST_P(DefaultGroom, GivesTheSameBytesAtAnyNumberOfThreads) {
  std::uint64_t hashes[3];
  for (std::size_t threads = 0; threads < 3; ++threads) {
    setThreadCount(threads);
    GroomSession session;
    load(session, graphText());
    const StrandSetPtr strands = evaluate(session);
    test::expectValidGroom(*strands);
    EXPECT_EQ(strands->uniformPointCount(), 17u);
    hashes[threads] = strands->contentHash();
  }
  EXPECT_EQ(hashes[0], hashes[1]);
  EXPECT_EQ(hashes[0], hashes[2]);
}

TEST_P(DefaultGroom, MovedGuidesRunOnlyTheirStrandsThroughEveryNode) {
  GroomSession session;
  load(session, graphText());
  evaluate(session);
  session.setGuides(withMovedTips({4, 11, 20}, 0.8f));
  const StrandSetPtr moved = evaluate(session);
  const GroomStats stats = session.stats();
  for (const char* node : {"interpolate", "length", "noise", "color", "width", "resample"}) {
    EXPECT_EQ(of(stats.runs, node).rfind("incremental ", 0), 0u) << of(stats.runs, node);
  }
  GroomSession fresh;
  fresh.setScalp(scalp_);
  fresh.setGuides(withMovedTips({4, 11, 20}, 0.8f));
  ASSERT_FALSE(fresh.setGraph(graphText()));
  test::expectSameStrands(*evaluate(fresh), *moved);
}

TEST_P(DefaultGroom, EditsInAnyOrderEndAtTheSameStrands) {
  GroomSession session;
  load(session, graphText());
  evaluate(session);
  const std::vector<std::pair<std::string, std::pair<std::string, Json>>> edits{
      {"noise", {"amplitude", 0.5}},
      {"noise", {"amplitude", {{"expression", "0.2 * t * rand"}}}},
      {"width", {"width", {{"attribute", "melanin"}}}},
      {"length", {"keep", {{"expression", "0.5 + 0.5 * u"}}}},
      {"interpolate", {"neighbors", 1}},
      {"resample", {"segments", 9}},
      {"scatter", {"randomness", 0.5}},
      {"color", {"tipStrength", 0.7}},
      {"noise", {"affect", {{"expression", "step(0, z)"}}}},
      {"noise", {"amplitude", {{"expression", "0.1 * length / longest"}}}},
  };
  for (const auto& [node, change] : edits) {
    SCOPED_TRACE(node + "." + change.first);
    ASSERT_FALSE(session.setGraph(graphText(node, change.first, change.second)));
    evaluate(session);
    session.setGuides(withMovedTips({2, 7}, 0.5f));
    const StrandSetPtr strands = evaluate(session);
    GroomSession fresh;
    load(fresh, graphText(node, change.first, change.second));
    fresh.setGuides(withMovedTips({2, 7}, 0.5f));
    test::expectSameStrands(*evaluate(fresh, 0.0, true), *strands);
    session.setGuides(guides_);
  }
}

TEST_P(DefaultGroom, TheLastSliderRunsItsNodeAlone) {
  GroomSession session;
  load(session, graphText());
  evaluate(session);
  ASSERT_FALSE(session.setGraph(graphText("resample", "segments", 16)));
  evaluate(session);
  ASSERT_FALSE(session.setGraph(graphText("width", "randomness", 0.4)));
  const GroomStats before = session.stats();
  evaluate(session);
  const GroomStats after = session.stats();
  for (const char* node : {"scatter", "interpolate", "length", "noise", "color"}) {
    EXPECT_EQ(of(after.times, node), of(before.times, node)) << node;
  }
}

TEST_P(DefaultGroom, AFrameReachesWhatReadsTheTime) {
  GroomSession session;
  load(session, graphText("noise", "amplitude", {{"expression", "0.1 + 0.01 * frame"}}));
  const StrandSetPtr first = evaluate(session, 1.0);
  const StrandSetPtr second = evaluate(session, 2.0);
  EXPECT_NE(first->contentHash(), second->contentHash());
  EXPECT_EQ(evaluate(session, 1.0)->contentHash(), first->contentHash());
  EXPECT_TRUE(session.readsTime());
}

INSTANTIATE_TEST_SUITE_P(Modes, DefaultGroom,
                         testing::Values(Mode::verified, Mode::kept, Mode::recycled),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace kestrane
