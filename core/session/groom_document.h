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

#include "core/base/errors.h"
#include "core/base/json.h"
#include "core/base/vec.h"
#include "core/data/scalp_mesh.h"

namespace kestrane {

class GuideHierarchy;
struct CorrectiveData;
struct FlowData;
struct PartData;

/// A surface as a groom file keeps it. Of a collider the file holds points, triangles, polygons,
/// the render level and the rest pose alone.
struct GroomMesh {
  ScalpMeshPtr mesh;            // null: the groom has none
  int renderLevels = 0;         // Catmull-Clark levels that the render draws it at, 0 to 3
  std::string subdivisionFrom;  // where the levels come from, in words for the user
};

/// One flat guide: a curve that stands in no hierarchy.
struct GroomGuide {
  std::uint64_t id = 0;
  StrandRoot root;
  std::vector<Vec3f> points;     // root first
  std::optional<Vec3f> frameUp;  // the up vector of its frames at the root

  bool operator==(const GroomGuide&) const = default;
};

/// A map painted over the scalp.
struct GroomMap {
  std::string kind = "vertices";  // or "texture"
  std::string texture;            // of a texture map: its image, as the user gave it
  int channels = 1;               // 1 gray, 4 color
  std::vector<float> values;      // of a vertices map: `channels` values per scalp vertex

  bool operator==(const GroomMap&) const = default;
};

/// A mesh that Instance nodes place.
struct GroomPrototype {
  std::vector<Vec3f> points;
  std::vector<ScalpMesh::Triangle> triangles;
  std::vector<Vec3f> normals;
  std::vector<Vec2f> uvs;

  bool operator==(const GroomPrototype&) const = default;
};

/// An animated cache that lies outside the groom file.
struct GroomCacheReference {
  std::string file;
  std::string object;  // the object's path within the file
  std::string stamp;   // the file's identity when the groom was written

  bool empty() const { return file.empty() && object.empty() && stamp.empty(); }
  bool operator==(const GroomCacheReference&) const = default;
};

/// Cards baked into files beside the groom.
struct GroomCardBake {
  std::string prefix;
  std::int64_t strands = 0;

  bool empty() const { return prefix.empty() && strands == 0; }
  bool operator==(const GroomCardBake&) const = default;
};

/// A whole groom, as a .groom file holds it: one field per key. Empty fields are not written.
struct GroomDocument {
  double framesPerSecond = 0.0;  // 0: not told
  std::string units = "cm";
  std::string upAxis = "Y";  // "Y" or "Z"
  std::string source;        // what this was exported from
  Json graph;                // the graph document; null: none
  std::shared_ptr<const GuideHierarchy> hierarchy;
  std::shared_ptr<const PartData> parts;
  std::shared_ptr<const CorrectiveData> correctives;
  std::shared_ptr<const FlowData> flow;
  std::map<std::string, double> controls;
  std::map<std::string, GroomMap> maps;
  GroomMesh scalp;
  std::vector<GroomGuide> guides;
  GroomCacheReference scalpCache;
  GroomCacheReference guideCache;
  std::vector<std::string> searchPaths;
  bool followScalp = false;
  GroomCardBake cardBake;
  Json simCaches;  // an object from Simulate node to its bake; null: none
  std::map<std::string, GroomPrototype> prototypes;
  std::map<std::string, GroomMesh> colliders;
};

/// The newest groom file format.
inline constexpr int groomFileVersion = 1;

/// Writes the file through a temporary one beside it. Throws GroomFileError, and leaves an older
/// file as it was, for a value that is not finite ("groom file: 'KEY' holds a non-finite value at
/// index N", counted in numbers) or a write that fails ("cannot write 'PATH'").
void writeGroomFile(const std::string& path, const GroomDocument& document);
/// Throws GroomFileError, or SchemaError for the version; nothing is half-read.
GroomDocument readGroomFile(const std::string& path);

/// The same as one text.
std::string groomFileText(const GroomDocument& document);
GroomDocument parseGroomFile(std::string_view text);

/// Turns all that is given in world space from one up axis ("Y" or "Z") to the other: surfaces,
/// guides, prototypes, world directions and mirror planes of the graph's nodes and of compounds
/// within them. Data that hangs on the surface (parts, flow, correctives) turns with it. Sets
/// upAxis. Throws GroomFileError for another axis.
void convertUpAxis(GroomDocument& document, std::string_view from, std::string_view to);

}  // namespace kestrane
