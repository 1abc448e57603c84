// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/graph/eval_context.h"
#include "core/session/groom_document.h"
#include "core/session/guide_poser.h"
#include "core/session/painted_maps.h"

namespace kestrane {

/// All that an evaluation reads beside the graph. Immutable, so that an evaluation may go on with
/// it while the session takes new inputs.
struct SessionScene {
  SceneTable table;
  EvalResources resources;
  ScalpMeshPtr scalp;
  std::shared_ptr<const GuideHierarchy> guides;  // as they are posed
};
using SessionScenePtr = std::shared_ptr<const SessionScene>;

/// What a host has put into a session, and the scene that it makes. Each setter answers whether it
/// changed anything; render levels are clamped to 0 to 3. Not thread-safe.
class SessionInputs {
 public:
  bool setScalp(GroomMesh scalp);
  /// Without rest points the rest pose stays: that of a mesh without one is its points. Throws
  /// std::invalid_argument where the counts do not fit.
  bool updateScalpPoints(std::vector<Vec3f> points, std::vector<Vec3f> restPoints);
  bool setGuides(std::shared_ptr<const GuideHierarchy> guides);
  bool setFlatGuides(std::vector<GroomGuide> guides);
  bool setParts(std::shared_ptr<const PartData> parts);
  bool setCorrectives(std::shared_ptr<const CorrectiveData> layers);
  bool setMaps(std::map<std::string, GroomMap> maps);
  bool setColliders(std::map<std::string, GroomMesh> colliders);
  bool setSearchPaths(std::vector<std::string> paths);
  bool setObject(const std::string& name, GraphValue value);

  // Of these any change is a change of the scene.
  std::map<std::string, double> controls;
  double framesPerSecond = 0.0;  // 0: not told
  bool followScalp = false;
  bool matchRender = true;

  const GroomMesh& scalp() const { return scalp_; }
  const std::vector<GroomGuide>& flatGuides() const { return flatGuides_; }
  const std::shared_ptr<const PartData>& parts() const { return parts_; }
  const std::shared_ptr<const CorrectiveData>& correctives() const { return correctives_; }
  const std::map<std::string, GroomMap>& maps() const { return maps_; }
  const std::map<std::string, GroomMesh>& colliders() const { return colliders_; }
  const std::vector<std::string>& searchPaths() const { return searchPaths_; }
  /// The guides bound to the scalp; null without any.
  std::shared_ptr<const GuideHierarchy> boundGuides();

  /// Whether strands are to be grown at the rest pose and carried.
  bool follows() const;
  /// The scene at a time, with the scalp as it is posed or at rest. `levels` are the refinements of
  /// the scalp, 1 to 3, that the graph's strands may be rooted on; without any list the scene has
  /// no painted maps. What has not changed since the last scene is the same object in this one.
  SessionScenePtr scene(double time, bool atRest, const std::vector<int>* levels);

 private:
  int effectiveLevels(const GroomMesh& mesh) const;
  ScalpMeshPtr restScalp();
  void addMesh(SceneTable& table, const std::string& name, const GroomMesh& mesh) const;
  void addGuides(SceneTable& table, const std::shared_ptr<const GuideHierarchy>& posed);
  std::shared_ptr<const PaintedMaps> paintedMaps(const ScalpMeshPtr& scalp,
                                                 const std::vector<int>& levels);

  GroomMesh scalp_;
  ScalpMeshPtr restScalp_;  // made from the scalp when asked for
  std::shared_ptr<const GuideHierarchy> guides_;
  GuidePoser poser_;
  std::vector<GroomGuide> flatGuides_;
  GuideSetPtr flatSet_;
  std::shared_ptr<const PartData> parts_;
  std::uint64_t partsRevision_ = 0;
  std::shared_ptr<const CorrectiveData> correctives_;
  std::map<std::string, GroomMap> maps_;
  std::map<std::string, GroomMesh> colliders_;
  std::vector<std::string> searchPaths_;
  std::function<std::string(const std::string&)> resolvePath_;
  std::map<std::string, SceneInput> objects_;

  // What was made for the last scenes.
  struct GuideInputs {
    std::shared_ptr<const GuideHierarchy> posed;
    SceneInput hierarchy;
    SceneInput flat;
  };
  GuideInputs guideInputs_;
  std::map<int, ScalpRefinement> refinements_;  // by level; of the scalp's topology
  std::shared_ptr<const PaintedMaps> painted_;
  ScalpMeshPtr paintedScalp_;
  std::vector<int> paintedLevels_;
};

}  // namespace kestrane
