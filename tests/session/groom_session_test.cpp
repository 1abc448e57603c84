// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/groom_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "core/session/session_scene.h"
#include "tests/session/groom_fixtures.h"
#include "tests/session/session_fixtures.h"
#include "tests/support/groom_checks.h"

namespace kestrane {
namespace {

using test::chain;
using test::Runs;
using test::sharedGrid;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Session : public testing::Test {
 protected:
  void SetUp() override {
    test::registerTestOperators();
    Runs::reset();
    session.setScalp(sharedGrid(2));
    EXPECT_FALSE(session.setGraph(chain()));
  }

  static EvaluateRequest view() { return {.viewport = true}; }
  static SessionMessage error(const std::string& text) { return {text, true}; }
  std::vector<std::string> channelsOf(const GroomStats& stats) { return stats.channels; }

  GroomSession session;
};

TEST(EmptySession, HasNoGraph) {
  GroomSession session;
  EXPECT_THAT(session.evaluate({}), ElementsAre(SessionMessage{"the groom has no graph", true}));
  EXPECT_EQ(session.strands(), nullptr);
  EXPECT_EQ(session.guides(), nullptr);
  EXPECT_EQ(session.graphJson(), "");
  EXPECT_EQ(session.outputNode(), "");
  EXPECT_FALSE(session.activeNode("Scalp"));
  EXPECT_EQ(session.evaluateDetached({}), nullptr);
  EXPECT_FALSE(session.setGraph(" \t\r\n"));
  EXPECT_EQ(session.stats().toJson()["view"], "");
}

TEST(EmptySession, TheDefaultGraphGrowsHair) {
  GroomSession session;
  EXPECT_FALSE(session.setGraph(GroomSession::defaultGraph()));
  session.setScalp(sharedGrid(4));
  session.setGuides(std::make_shared<const GuideHierarchy>(test::makeGuides()));
  EXPECT_THAT(session.evaluate({}), IsEmpty());
  ASSERT_NE(session.strands(), nullptr);
  EXPECT_GT(session.strands()->strandCount(), 0u);
  test::expectValidGroom(*session.strands());
  const Extent extent = session.extent(), own = session.strands()->extent();
  EXPECT_EQ(extent.min, own.min);
  EXPECT_EQ(extent.max, own.max);
  EXPECT_FALSE(session.readsTime());
}

TEST_F(Session, AGraphThatDoesNotLoadIsNone) {
  EXPECT_THAT(session.evaluate({}), IsEmpty());
  const auto answer = session.setGraph(R"({"nodes":[{"name":"a","type":"Hairball"}]})");
  ASSERT_TRUE(answer);
  EXPECT_EQ(*answer, error("unknown operator type 'Hairball'"));
  EXPECT_THAT(session.evaluate({}), ElementsAre(error("the groom has no graph")));
  EXPECT_EQ(session.strands(), nullptr);
  EXPECT_EQ(session.setGraph(R"({"version":2})")->text,
            "graph version 2 is newer than this Kestrane supports (1); update Kestrane to open it");
  EXPECT_FALSE(session.setGraph(chain()));
  EXPECT_THAT(session.evaluate({}), IsEmpty());
  EXPECT_NE(session.strands(), nullptr);
}

TEST_F(Session, ViewAndRenderKeepTheirOwnResults) {
  session.evaluate({});
  session.evaluate(view());
  EXPECT_EQ(Runs::grow, 2);
  for (int i = 0; i < 3; ++i) {
    session.evaluate({});
    session.evaluate(view());
  }
  EXPECT_EQ(Runs::grow, 2);
  EXPECT_EQ(Runs::shift, 4);
  EXPECT_EQ(session.stats().view, "viewport");
  EXPECT_EQ(session.evaluations(), 8u);
}

TEST_F(Session, AnotherParameterRunsItsNodeAlone) {
  session.evaluate({});
  EXPECT_FALSE(session.setGraph(chain()));
  session.evaluate({});
  EXPECT_EQ(Runs::shift, 2);
  const int adopted = Runs::adopted;
  EXPECT_FALSE(session.setGraph(chain("{}", R"({"by":2.0})")));
  EXPECT_GT(Runs::adopted, adopted);
  session.evaluate({});
  EXPECT_EQ(Runs::grow, 1);
  EXPECT_EQ(Runs::shift, 3);
  const StrandSetPtr after = session.strands();
  EXPECT_EQ(session.stats().runs.size(), 5u);
  GroomSession fresh;
  fresh.setScalp(sharedGrid(2));
  fresh.setGraph(chain("{}", R"({"by":2.0})"));
  fresh.evaluate({});
  EXPECT_EQ(after->contentHash(), fresh.strands()->contentHash());
}

TEST_F(Session, StrandsThatAreNotNumbersStayAway) {
  session.evaluate({});
  const StrandSetPtr good = session.strands();
  const Extent extent = session.extent();
  session.setGraph(chain(R"({"fault":"nan"})"));
  EXPECT_THAT(
      session.evaluate({}),
      ElementsAre(error("node 'first' makes points that are not numbers (NaN or infinite)")));
  EXPECT_EQ(session.strands(), good);
  EXPECT_EQ(session.extent().max, extent.max);
  // Where nodes keep nothing, there is nobody to blame.
  GroomSession lean;
  lean.setScalp(sharedGrid(2));
  lean.setGraph(chain(R"({"fault":"nan"})"));
  EXPECT_THAT(lean.evaluate({.lean = true}),
              ElementsAre(error("the strands have points that are not numbers (NaN or infinite): a "
                                "node before the output made them")));
  EXPECT_EQ(session.evaluations(), 1u);
}

TEST_F(Session, AFailureIsAMessageAndTheLastResultStays) {
  session.evaluate({});
  const StrandSetPtr good = session.strands();
  session.setGraph(chain(R"({"fault":"throw"})"));
  EXPECT_THAT(session.evaluate({}), ElementsAre(error("node 'first': it broke")));
  EXPECT_EQ(session.messages().size(), 1u);
  EXPECT_EQ(session.strands(), good);
  session.setGraph(chain());
  EXPECT_THAT(session.evaluate({}), IsEmpty());
  EXPECT_EQ(session.strands()->contentHash(), good->contentHash());
}

TEST_F(Session, WarningsComeInNodeOrderEveryTime) {
  session.setGraph(chain(R"({"fault":"warn"})", R"({"fault":"warn"})"));
  const auto expected = ElementsAre(SessionMessage{"node 'first': careful", false},
                                    SessionMessage{"node 'last': careful", false});
  EXPECT_THAT(session.evaluate({}), expected);
  EXPECT_THAT(session.evaluate({}), expected);
  EXPECT_EQ(session.stats().toJson()["notes"]["first"], "careful; a note");
}

TEST_F(Session, UpdatingScalpPoints) {
  session.evaluate({});
  const StrandSetPtr before = session.strands();
  const ScalpMeshPtr scalp = session.scalp();
  const std::uint64_t revision = session.sceneRevision();
  session.updateScalpPoints(scalp->points());
  EXPECT_EQ(session.sceneRevision(), revision);
  EXPECT_EQ(session.scalp(), scalp);
  session.evaluate({});
  EXPECT_EQ(Runs::grow, 1);

  session.updateScalpPoints(test::moved(scalp->points()));
  EXPECT_NE(session.sceneRevision(), revision);
  EXPECT_EQ(session.scalp()->topologyHash(), scalp->topologyHash());
  session.evaluate({});
  EXPECT_EQ(Runs::grow, 2);
  EXPECT_LT(distance(test::moved(before->points()[0]), session.strands()->points()[0]), 1e-5f);

  const auto expectRefused = [](GroomSession& target, std::size_t count, const std::string& text) {
    try {
      target.updateScalpPoints(std::vector<Vec3f>(count));
      FAIL() << text;
    } catch (const std::invalid_argument& refusal) {
      EXPECT_EQ(refusal.what(), text);
    }
  };
  expectRefused(session, 3, "updateScalpPoints: 3 points for a scalp of 9");
  GroomSession empty;
  expectRefused(empty, 3, "updateScalpPoints: the session has no scalp");
}

/// Whatever is put in a second time changes nothing.
TEST_F(Session, SettersThatSayNothingNew) {
  const GroomDocument document = test::makeDocument();
  const std::function<void()> setters[] = {
      [&] { session.setScalp(std::make_shared<const ScalpMesh>(test::makeGrid(3)), 2, "x"); },
      [&] { session.setGuides(std::make_shared<const GuideHierarchy>(test::makeGuides())); },
      [&] { session.setFlatGuides(document.guides); },
      [&] { session.setParts(std::make_shared<const PartData>(*document.parts)); },
      [&] { session.setFlow(document.flow); },
      [&] {
        session.setCorrectives(std::make_shared<const CorrectiveData>(*document.correctives));
      },
      [&] { session.setControls(document.controls); },
      [&] { session.setMaps(document.maps); },
      [&] { session.setSearchPaths(document.searchPaths); },
      [&] { session.setColliders(document.colliders); },
      [&] { session.setPrototypes(document.prototypes); },
      [&] { session.setSimCaches(document.simCaches); },
      [&] { session.setCardBake(document.cardBake); },
      [&] { session.setFramesPerSecond(30.0); },
      [&] { session.setUnits("m"); },
      [&] { session.setUpAxis("Z"); },
      [&] { session.setFollowScalp(true); },
      [&] { session.setMatchRender(false); },
  };
  int which = 0;
  for (const auto& set : setters) {
    const std::uint64_t before = session.sceneRevision();
    set();
    const std::uint64_t once = session.sceneRevision();
    EXPECT_GT(once, before) << which;
    set();
    EXPECT_EQ(session.sceneRevision(), once) << which;
    ++which;
  }
}

TEST_F(Session, ControlsAndObjectsReachTheNodesThatReadThem) {
  session.evaluate({});
  const float x = session.strands()->points()[0].x;
  session.setControls({{"push", 2.5}, {"other", 1.0}});
  session.evaluate({});
  EXPECT_FLOAT_EQ(session.strands()->points()[0].x, x + 2.5f);
  EXPECT_EQ(Runs::grow, 1);
  const int shifts = Runs::shift;
  session.setControls({{"push", 2.5}, {"other", 2.0}});
  session.setSceneObject("else", sharedGrid(1));
  session.evaluate({});
  EXPECT_EQ(Runs::shift, shifts);
}

TEST_F(Session, RenderLevelsStayInTheirRange) {
  GroomDocument document = test::makeDocument();
  document.scalp.renderLevels = 9;
  document.colliders["body"].renderLevels = -4;
  session.load(document);
  EXPECT_EQ(session.scalpRenderLevels(), 3);
  EXPECT_EQ(session.document().scalp.renderLevels, 3);
  EXPECT_EQ(session.document().colliders["body"].renderLevels, 0);
}

TEST_F(Session, TheScalpIsRefinedAsTheRenderDrawsIt) {
  session.setScalp(sharedGrid(2), 1);
  session.evaluate({});
  EXPECT_EQ(session.strands()->strandCount(), 32u + 1u);
  session.setMatchRender(false);
  session.evaluate({});
  EXPECT_EQ(session.strands()->strandCount(), 8u + 1u);
  session.setMatchRender(true);
  session.evaluate({});
  EXPECT_EQ(session.strands()->strandCount(), 32u + 1u);
}

TEST_F(Session, StrandsFollowTheScalpAsRigidBodies) {
  for (const auto& [level, hasRest] : {std::pair(0, true), {1, true}, {0, false}, {1, false}}) {
    GroomSession follower;
    follower.setGraph(chain());
    follower.setScalp(hasRest ? test::sharedGridAtRest(2) : sharedGrid(2), level);
    follower.setFollowScalp(true);
    follower.evaluate({});
    const StrandSetPtr rest = follower.strands();
    EXPECT_EQ(follower.stats().restEvaluations, 1u);
    const ScalpMeshPtr scalp = follower.scalp();
    follower.updateScalpPoints(test::moved(scalp->points()));
    Runs::reset();
    EXPECT_THAT(follower.evaluate({}), IsEmpty());
    EXPECT_EQ(Runs::grow, 0) << "the rest pose is grown once";
    EXPECT_EQ(follower.stats().restEvaluations, 1u);
    const StrandSetPtr posed = follower.strands();
    ASSERT_EQ(posed->pointCount(), rest->pointCount());
    for (std::size_t i = 0; i + 2 < rest->pointCount(); ++i) {
      EXPECT_LT(distance(test::moved(rest->points()[i]), posed->points()[i]), 1e-5f) << i;
    }
    // The last strand is rooted nowhere.
    EXPECT_EQ(posed->points().back(), rest->points().back());
    EXPECT_EQ(follower.extent().max, posed->extent().max);
    follower.evaluate({});
    EXPECT_EQ(follower.strands(), posed) << "nothing moved, so nothing is carried";
    EXPECT_EQ(follower.extent().max, posed->extent().max);
    follower.updateScalpPoints(scalp->points());
    follower.evaluate({});
    EXPECT_EQ(follower.strands()->contentHash(), rest->contentHash());
    follower.setGraph(chain(R"({"by":1.0})"));
    follower.evaluate({});
    EXPECT_EQ(follower.stats().restEvaluations, 2u);
  }
}

TEST_F(Session, TheSurfaceIsTheOneThatStrandsAreRootedOn) {
  session.setColliders({{"body", {sharedGrid(3), 1}}});
  const auto replaced = [](const char* source) {
    std::string text = chain();
    const std::string scalp = R"("type":"Scalp")";
    return text.replace(text.find(scalp), scalp.size(), source);
  };
  const std::string own = chain();
  const std::string collider = replaced(R"("type":"ColliderMesh","params":{"name":"body"})");
  const std::string input =
      replaced(R"("type":"Scalp","params":{"input":"mesh:body","subdivision":"off"})");
  struct Case {
    const std::string& graph;
    int level;
    std::size_t triangles;
  };
  EXPECT_EQ(session.surface(), nullptr);
  for (const Case& c : {Case{own, 0, 8}, {own, 1, 32}, {collider, 0, 72}, {input, 0, 18}}) {
    session.setGraph(c.graph);
    session.setScalp(test::sharedGridAtRest(2), c.level);
    for (const bool follow : {false, true}) {
      session.setFollowScalp(follow);
      session.updateScalpPoints(test::moved(session.scalp()->points()));
      for (const bool lean : {false, true}) {
        EXPECT_THAT(session.evaluate({.lean = lean}), IsEmpty());
        ASSERT_NE(session.surface(), nullptr);
        EXPECT_EQ(session.surface()->triangleCount(), c.triangles);
        const StrandSet& strands = *session.strands();
        for (std::size_t i = 0; i + 1 < strands.strandCount(); ++i) {
          EXPECT_LT(distance(session.surface()->positionAt(strands.roots()[i]),
                             strands.strandPoints(i)[0]),
                    1e-5f)
              << i;
        }
      }
    }
  }
}

TEST_F(Session, AnotherRestPoseGrowsOtherStrands) {
  session.setScalp(test::sharedGridAtRest(2));
  session.setFollowScalp(true);
  session.evaluate({});
  const StrandSetPtr before = session.strands();
  const std::vector<Vec3f> points = session.scalp()->points();
  std::vector<Vec3f> wider = points;
  for (Vec3f& point : wider) point = point * 2.0f;
  session.updateScalpPoints(points, wider);
  session.evaluate({});
  EXPECT_EQ(session.stats().restEvaluations, 2u);
  // Grown on the wide pose and carried to the old one: rooted as before, no shorter.
  for (std::size_t i = 0; i < before->pointCount() - 2; ++i) {
    EXPECT_LT(distance(before->points()[i], session.strands()->points()[i]), 1e-5f) << i;
  }
}

/// Revisions are those of what stands in the scene: node keys rest on them.
TEST(SessionInputs, RevisionsMoveWithWhatTheyStandFor) {
  const GroomDocument document = test::makeDocument();
  SessionInputs inputs;
  const std::vector<std::string> names = {"scalp",     "guides",           "hierarchy",
                                          "mesh:body", "control:pressure", "thing"};
  const auto revisions = [&](double time = 0.0) {
    std::vector<std::uint64_t> found;
    const SessionScenePtr scene = inputs.scene(time, false, nullptr);
    for (const std::string& name : names) found.push_back(scene->table.revision(name));
    return found;
  };
  const std::pair<std::function<void()>, std::vector<bool>> steps[] = {
      {[&] { inputs.setScalp(document.scalp); }, {true, false, false, false, false, false}},
      {[&] { inputs.setGuides(document.hierarchy); }, {false, true, true, false, false, false}},
      {[&] { inputs.setFlatGuides(document.guides); }, {false, true, false, false, false, false}},
      {[&] { inputs.setColliders(document.colliders); }, {false, false, false, true, false, false}},
      {[&] { inputs.controls["pressure"] = 1; }, {false, false, false, false, true, false}},
      {[&] { inputs.controls["pressure"] = 2; }, {false, false, false, false, true, false}},
      {[&] { inputs.setObject("thing", test::sharedGrid(1)); },
       {false, false, false, false, false, true}},
      {[&] { inputs.updateScalpPoints(test::moved(inputs.scalp().mesh->points()), {}); },
       {true, false, true, false, false, false}},
      {[&] { inputs.matchRender = false; }, {true, false, false, true, false, false}},
      {[&] {}, {false, false, false, false, false, false}},
  };
  auto before = revisions();
  int number = 0;
  for (const auto& [step, moves] : steps) {
    ++number;
    step();
    const auto after = revisions();
    for (std::size_t i = 0; i < names.size(); ++i) {
      EXPECT_EQ(before[i] != after[i], moves[i]) << names[i] << " at step " << number;
    }
    before = after;
  }
}

TEST_F(Session, CorrectivesShowAtTheirTime) {
  session.setGuides(std::make_shared<const GuideHierarchy>(test::makeGuides()));
  session.evaluate({});
  const auto plain = session.guides();
  ASSERT_NE(plain, nullptr);
  CorrectiveLayer layer;
  layer.name = "shot";
  layer.time = 10;
  const std::uint64_t id = plain->guides().front().id;
  layer.offsets[id] = {{}, {0.5f, 0, 0}, {}};
  session.setCorrectives(std::make_shared<const CorrectiveData>(CorrectiveData{{layer}}));
  EXPECT_TRUE(session.readsTime());
  session.evaluate({.time = 9});
  EXPECT_EQ(session.guides()->contentHash(), plain->contentHash());
  session.evaluate({.time = 10});
  const GuideRecord* guide = session.guides()->findGuide(id);
  EXPECT_NEAR(distance(guide->points[1], plain->findGuide(id)->points[1]), 0.5f, 1e-5f);
  EXPECT_EQ(guide->points[2], plain->findGuide(id)->points[2]);
  // What the file gets are the guides without it.
  EXPECT_EQ(session.document().hierarchy->contentHash(), plain->contentHash());
}

TEST_F(Session, GuidesFollowTheScalp) {
  session.setGuides(std::make_shared<const GuideHierarchy>(test::makeGuides()));
  session.evaluate({});
  const auto before = session.guides();
  EXPECT_GE(before->guides().front().root.face, 0);
  session.updateScalpPoints(test::moved(session.scalp()->points()));
  session.evaluate({});
  for (std::size_t i = 0; i < before->guides().size(); ++i) {
    const auto& a = before->guides()[i].points;
    const auto& b = session.guides()->guides()[i].points;
    for (std::size_t k = 0; k < a.size(); ++k) {
      EXPECT_LT(distance(test::moved(a[k]), b[k]), 1e-4f);
    }
  }
}

TEST_F(Session, StatisticsHaveTheirKeysInOrder) {
  session.evaluate(view());
  std::vector<std::string> keys;
  const Json json = session.stats().toJson();
  for (const auto& [key, value] : json.items()) keys.push_back(key);
  EXPECT_THAT(
      keys, ElementsAre("view", "strands", "points", "guides", "cards", "cardStrands",
                        "cardTriangles", "cardTextures", "cardFeathers", "cardsBaked", "cardsStale",
                        "cardNodes", "hairColor", "renderData", "colorNodes", "colorBlends",
                        "times", "runs", "channels", "notes", "scalpHistory", "instances",
                        "restEvaluations", "distanceFieldsMade", "strokeDocument", "simulations"));
  EXPECT_EQ(json["strands"], 9);
  EXPECT_EQ(json["points"], 8 * 3 + 2);
  keys.clear();
  for (const auto& [key, value] : json["runs"].items()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("scalp", "grow", "first", "last", "output"));
}

TEST_F(Session, AWholeGroomGoesInAndComesOut) {
  GroomDocument document = test::makeDocument();
  document.graph = Json::parse(chain());
  GroomSession one;
  EXPECT_FALSE(one.load(document));
  // Binding the guides to the scalp is all that a session does to a groom.
  document.hierarchy = one.guides();
  EXPECT_NE(document.hierarchy->scalpTopology(), 0u);
  test::expectSameDocument(document, one.document());
  one.evaluate({.time = 12.5});
  test::expectSameDocument(document, one.document());
  GroomSession two;
  EXPECT_FALSE(two.load(parseGroomFile(groomFileText(one.document()))));
  two.evaluate({.time = 12.5});
  EXPECT_EQ(one.strands()->contentHash(), two.strands()->contentHash());
  // A graph of another program is kept, though it does not load.
  document.graph["nodes"][0]["type"] = "Hairball";
  EXPECT_EQ(two.load(document)->text, "unknown operator type 'Hairball'");
  EXPECT_EQ(two.strands(), nullptr);
  EXPECT_EQ(two.document().graph, document.graph);
}

TEST_F(Session, RecycledResultsAreTheSame) {
  for (const bool recycle : {false, true}) {
    session.setGraph(chain(R"({"by":3.0})"));
    session.evaluate({.recycle = recycle});
    session.setGraph(chain(R"({"by":4.0})"));
    session.evaluate({.recycle = recycle});
    EXPECT_FLOAT_EQ(session.strands()->points().back().x, 9.0f + 4.0f) << recycle;
  }
  session.setGraph(chain(R"({"fault":"throw"})"));
  session.evaluate({.recycle = true});
  EXPECT_EQ(session.strands(), nullptr);
}

TEST_F(Session, WithoutIncrementalEvaluationResultsAreTheSame) {
  session.evaluate({});
  session.setIncremental(false);
  session.setControls({{"push", 1.0}});
  session.evaluate({});
  const std::uint64_t hash = session.strands()->contentHash();
  session.setIncremental(true);
  session.setControls({{"push", 0.0}});
  session.evaluate({});
  session.setControls({{"push", 1.0}});
  session.evaluate({});
  EXPECT_EQ(session.strands()->contentHash(), hash);
}

}  // namespace
}  // namespace kestrane
