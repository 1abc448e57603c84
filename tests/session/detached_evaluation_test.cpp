// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "core/session/detached_evaluation.h"
#include "core/session/groom_session.h"
#include "tests/session/session_fixtures.h"

namespace kestrane {
namespace {

using test::chain;
using test::Runs;

class Detached : public testing::Test {
 protected:
  void SetUp() override {
    test::registerTestOperators();
    Runs::reset();
    session.setScalp(test::sharedGrid(3));
    session.setGraph(chain());
  }

  /// What a session of its own makes of the same.
  static std::uint64_t expected(const std::string& graph) {
    GroomSession other;
    other.setScalp(test::sharedGrid(3));
    other.setGraph(graph);
    other.evaluate({});
    return other.strands()->contentHash();
  }

  GroomSession session;
};

TEST_F(Detached, GivesWhatTheSessionWouldThreads) {
  const DetachedEvaluationPtr job = session.evaluateDetached({});
  ASSERT_NE(job, nullptr);
  // Until the commit, the session knows nothing of it.
  EXPECT_EQ(session.strands(), nullptr);
  EXPECT_EQ(session.evaluations(), 0u);
  session.commit(job);
  EXPECT_TRUE(isFinished(*job));
  ASSERT_NE(session.strands(), nullptr);
  EXPECT_EQ(session.strands()->contentHash(), expected(chain()));
  EXPECT_EQ(session.extent().max, session.strands()->extent().max);
  EXPECT_EQ(session.evaluations(), 1u);
  EXPECT_EQ(session.stats().view, "render");
  EXPECT_EQ(session.stats().runs.size(), 5u);

  // Its results are now the nodes' own.
  Runs::reset();
  const StrandSetPtr committed = session.strands();
  session.evaluate({});
  EXPECT_EQ(Runs::grow + Runs::shift, 0);
  EXPECT_EQ(session.strands(), committed);
  session.setGraph(chain("{}", R"({"by":1.0})"));
  session.evaluate({});
  EXPECT_EQ(Runs::shift, 1);
  session.commit(job);  // once is enough
  EXPECT_EQ(session.evaluations(), 3u);
}

TEST_F(Detached, WorksOnInputsAsTheyWereThreads) {
  const DetachedEvaluationPtr job = session.evaluateDetached({.threads = 2});
  session.setGraph(chain(R"({"by":5.0})"));
  session.setScalp(test::sharedGrid(1));
  session.commit(job);
  EXPECT_EQ(session.strands()->contentHash(), expected(chain()));
  session.evaluate({});
  EXPECT_EQ(session.strands()->strandCount(), 2u + 1u);
  EXPECT_FLOAT_EQ(session.strands()->points().back().x, 14.0f);
}

TEST_F(Detached, CommitsInTheOrderOfTheRequestsThreads) {
  const DetachedEvaluationPtr first = session.evaluateDetached({});
  session.setGraph(chain(R"({"by":1.0})"));
  const DetachedEvaluationPtr second = session.evaluateDetached({});
  try {
    session.commit(second);
    FAIL();
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "a detached evaluation ran before the one it follows");
  }
  EXPECT_EQ(session.strands(), nullptr);
  session.commit(first);
  session.commit(second);
  EXPECT_EQ(session.strands()->contentHash(), expected(chain(R"({"by":1.0})")));
  // One that was given up is waited for no more.
  DetachedEvaluationPtr dropped = session.evaluateDetached({});
  const DetachedEvaluationPtr third = session.evaluateDetached({});
  dropped.reset();
  session.commit(third);
  // Nor does one hide those before it.
  const DetachedEvaluationPtr early = session.evaluateDetached({});
  dropped = session.evaluateDetached({});
  const DetachedEvaluationPtr late = session.evaluateDetached({});
  dropped.reset();
  EXPECT_THROW(session.commit(late), std::logic_error);
  session.commit(early);
  session.commit(late);
  GroomSession other;
  EXPECT_THROW(other.commit(third), std::logic_error);
  other.commit(nullptr);
}

TEST_F(Detached, GivesItsGraphBackWhateverComesOfItThreads) {
  for (const char* last : {"{}", R"({"fault":"throw"})"}) {
    session.setGraph(chain("{}", last));
    const DetachedEvaluationPtr job = session.evaluateDetached({});
    EXPECT_EQ(job->document.graph.nodes().size(), 5u);
    try {
      session.commit(job);
    } catch (const GraphError&) {
    }
    EXPECT_TRUE(job->document.graph.nodes().empty());
  }
}

TEST_F(Detached, FailuresComeOutAtTheCommitThreads) {
  session.evaluate({});
  const StrandSetPtr good = session.strands();
  for (const auto& [fault, text] :
       {std::pair("throw", "node 'last': it broke"),
        std::pair("nan", "node 'last' makes points that are not numbers (NaN or infinite)")}) {
    session.setGraph(chain("{}", std::string(R"({"fault":")") + fault + "\"}"));
    const DetachedEvaluationPtr job = session.evaluateDetached({});
    try {
      session.commit(job);
      FAIL() << text;
    } catch (const GraphError& error) {
      EXPECT_STREQ(error.what(), text);
    }
    EXPECT_EQ(session.strands(), good);
  }
  session.setGraph(chain());
  session.commit(session.evaluateDetached({}));
  EXPECT_EQ(session.strands()->contentHash(), good->contentHash());
}

TEST_F(Detached, DeclinesWhatACopyCannotStandFor) {
  EXPECT_EQ(session.evaluateDetached({.liveData = true}), nullptr);
  EXPECT_EQ(session.evaluateDetached({.sceneRevision = session.sceneRevision() + 1}), nullptr);
  EXPECT_NE(session.evaluateDetached({.sceneRevision = session.sceneRevision()}), nullptr);
  session.setGraph("");
  EXPECT_EQ(session.evaluateDetached({}), nullptr);
}

TEST_F(Detached, FollowsTheScalpThreads) {
  session.setScalp(test::sharedGridAtRest(3));
  session.setFollowScalp(true);
  session.commit(session.evaluateDetached({}));
  const StrandSetPtr rest = session.strands();
  session.updateScalpPoints(test::moved(session.scalp()->points()));
  Runs::reset();
  session.commit(session.evaluateDetached({}));
  EXPECT_EQ(Runs::grow, 0);
  EXPECT_LT(distance(test::moved(rest->points()[4]), session.strands()->points()[4]), 1e-5f);
}

/// A host may ask and set from one thread while another evaluates.
TEST_F(Detached, OneSessionFromSeveralThreads) {
  std::thread other([&] {
    for (int i = 0; i < 20; ++i) {
      session.setControls({{"push", 0.5 * i}});
      (void)session.stats();
      (void)session.document();
    }
  });
  for (int i = 0; i < 20; ++i) {
    session.evaluate({.viewport = i % 2 == 0});
    session.commit(session.evaluateDetached({.viewport = i % 3 == 0}));
  }
  other.join();
  EXPECT_EQ(session.evaluations(), 40u);
}

}  // namespace
}  // namespace kestrane
