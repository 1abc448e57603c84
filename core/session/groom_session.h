// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/data/scalp_mesh.h"
#include "core/data/strand_set.h"
#include "core/graph/graph_document.h"
#include "core/graph/graph_value.h"
#include "core/session/groom_document.h"
#include "core/session/groom_stats.h"
#include "core/session/hair_look.h"

namespace kestrane {

/// One sentence for the user about an evaluation.
struct SessionMessage {
  std::string text;
  bool isError = false;

  bool operator==(const SessionMessage&) const = default;
};

/// What to evaluate.
struct EvaluateRequest {
  float detail = 1.0f;  // clamped to 0 to 1
  std::uint64_t variant = 0;
  double time = 0.0;      // the frame
  bool viewport = false;  // the interactive view, not a render or export
  bool motion = false;
  /// Nodes keep no results: for an export, where memory counts for more than the next evaluation.
  bool lean = false;
  /// The last result may be taken apart to make the new one, which saves a copy of its arrays.
  /// Should the evaluation then fail, strands() is null.
  bool recycle = false;
  /// Data of a stroke that is under way is in use, which a detached copy cannot stand for.
  bool liveData = false;
  /// Detached only: the sceneRevision() that the caller saw; 0 takes the scene as it is.
  std::uint64_t sceneRevision = 0;
  /// Detached only: the most threads that the worker's loops use; 0 for no limit.
  std::size_t threads = 0;
};

/// An evaluation that runs beside its session until it is committed. Destroying the last holder
/// waits for it to end.
class DetachedEvaluation;
using DetachedEvaluationPtr = std::shared_ptr<DetachedEvaluation>;
/// Whether the evaluation has ended, so that a commit does not wait.
bool isFinished(const DetachedEvaluation& evaluation);

/// A node of the groom that takes part in the result.
struct ActiveNode {
  std::string name;  // with the compounds around it: "COMPOUND/NAME"
  std::string type;
  ParamSet parameters;
};

/// One groom: the host pushes a graph and scene objects in through setters, asks for an evaluation
/// and reads strands, guides, messages and statistics. A failed evaluation becomes a message, and
/// the last good result stays. A setter given what is there already does nothing. One mutex guards
/// a session, so every call may come from any thread; an evaluation holds it to its end, a detached
/// one does not.
class GroomSession {
 public:
  GroomSession();
  ~GroomSession();
  GroomSession(const GroomSession&) = delete;
  GroomSession& operator=(const GroomSession&) = delete;

  /// Puts a whole groom in, in place of everything that the session held, and binds guides that
  /// hang on no surface yet to the scalp. The answer is setGraph's.
  std::optional<SessionMessage> load(const GroomDocument& document);
  /// The whole groom as it was put in, for a file; guides as they are bound.
  GroomDocument document() const;

  /// Installs a graph's JSON. A blank text means no graph. A text that does not load is answered by
  /// its error and leaves no graph either. Nodes that keep their name and type keep what they have
  /// cached.
  std::optional<SessionMessage> setGraph(std::string_view text);
  std::string graphJson() const;        // of the graph as it is kept; empty without one
  GraphDocument graphDocument() const;  // a copy; without nodes where there is no graph
  static std::string_view defaultGraph() { return defaultGraphText(); }
  std::string outputNode() const;  // its name; empty without a graph

  // Scene inputs.
  /// The mesh with the levels at which the render subdivides it and the words for where they come
  /// from. Null takes the scalp away.
  void setScalp(ScalpMeshPtr mesh, int renderLevels = 0, std::string levelsFrom = {});
  /// A new pose of the scalp; empty rest points keep the rest pose. Throws std::invalid_argument
  /// "updateScalpPoints: the session has no scalp", or "updateScalpPoints: N points for a scalp of
  /// M".
  void updateScalpPoints(std::vector<Vec3f> points, std::vector<Vec3f> restPoints = {});
  void setGuides(std::shared_ptr<const GuideHierarchy> hierarchy);
  /// Guides that stand in no hierarchy.
  void setFlatGuides(std::vector<GroomGuide> guides);
  void setParts(std::shared_ptr<const PartData> parts);
  void setFlow(std::shared_ptr<const FlowData> flow);
  void setCorrectives(std::shared_ptr<const CorrectiveData> correctives);
  void setControls(std::map<std::string, double> controls);
  void setMaps(std::map<std::string, GroomMap> maps);
  void setSearchPaths(std::vector<std::string> paths);
  void setColliders(std::map<std::string, GroomMesh> colliders);
  void setPrototypes(std::map<std::string, GroomPrototype> prototypes);
  /// Bakes of Simulate nodes and of cards, kept for the file.
  void setSimCaches(Json bakes);
  void setCardBake(GroomCardBake bake);
  /// Any other object that a node may read by name.
  void setSceneObject(const std::string& name, GraphValue value);
  void setFramesPerSecond(double rate);
  void setUnits(std::string units);
  void setUpAxis(std::string axis);
  /// Grows strands at the scalp's rest pose and carries them with the posed scalp.
  void setFollowScalp(bool follow);
  /// Whether meshes are refined to the level that the render draws them at (on unless told).
  void setMatchRender(bool match);
  /// Evaluates the strands of the channel `_preview` only.
  void setPreview(bool preview);
  /// Whether this session's evaluations may build on earlier ones (on unless told).
  void setIncremental(bool incremental);

  ScalpMeshPtr scalp() const;
  int scalpRenderLevels() const;
  /// Grows with every change of a scene input.
  std::uint64_t sceneRevision() const;

  /// Evaluates the groom and answers what there is to say, errors included; never throws for what
  /// is wrong with the groom.
  std::vector<SessionMessage> evaluate(const EvaluateRequest& request);
  /// Starts an evaluation on a worker, on copies of the graph and the inputs. Null where a copy
  /// cannot stand for the session: no graph, live data, or another scene revision than asked for.
  DetachedEvaluationPtr evaluateDetached(const EvaluateRequest& request);
  /// Takes over a detached result, waiting for it where it still runs. Throws std::logic_error when
  /// an earlier detached evaluation is still to be committed, and what the worker threw.
  void commit(const DetachedEvaluationPtr& evaluation);

  // Results: of the last evaluation that went well.
  StrandSetPtr strands() const;  // null before the first
  /// The mesh that the strands' roots count on, refined and posed as they are; null before the
  /// first and where there is none.
  ScalpMeshPtr surface() const;
  /// The guides posed at the last evaluation's time, or as they were set before one.
  std::shared_ptr<const GuideHierarchy> guides() const;
  Extent extent() const;
  std::vector<SessionMessage> messages() const;  // of the last evaluation
  std::uint64_t evaluations() const;
  GroomStats stats() const;

  // What the graph holds, by walking the nodes that take part in the result.
  HairLook hairLook() const;
  std::string hairLookJson() const;
  bool hasCardsNode() const;
  /// The first active node of the type, upstream from the output.
  std::optional<ActiveNode> activeNode(std::string_view type) const;
  /// The names of the active Blend nodes that mix colour nodes.
  std::vector<std::string> colorBlendNodes() const;
  /// Whether another time may give another result: correctives or an active node read it.
  bool readsTime() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrane
