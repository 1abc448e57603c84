// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/subdivision_rules.h"

#include <algorithm>
#include <stdexcept>

#include "core/data/polygon_edges.h"

namespace kestrane::detail {

namespace {

/// 2 GB of them: a level that refines 5 million quads, but not the few large polygons whose weights
/// grow by the square of their corners.
constexpr std::uint64_t kMostWeights = 1u << 28;

class RulesBuilder {
 public:
  RulesBuilder(const PolygonFaces& faces, std::size_t vertexCount)
      : faces_(faces),
        vertexCount_(vertexCount),
        edges_(findPolygonEdges(faces.starts, faces.corners, vertexCount)),
        cornersOfVertices_(faces.corners, vertexCount),
        faceOfCorner_(faces.corners.size()) {
    for (std::uint32_t face = 0; face < faces.size(); ++face) {
      std::fill(faceOfCorner_.begin() + faces.starts[face],
                faceOfCorner_.begin() + faces.starts[face + 1], face);
    }
  }

  SubdivisionRules rules() {
    checkSize();
    rules_.coarseCount = static_cast<std::uint32_t>(vertexCount_);
    rules_.firstFacePoint = static_cast<std::uint32_t>(vertexCount_ + edges_.ends.size());
    rules_.reads.reserve(readCount());
    for (std::uint32_t vertex = 0; vertex < vertexCount_; ++vertex) addVertexPoint(vertex);
    for (std::uint32_t edge = 0; edge < edges_.ends.size(); ++edge) addEdgePoint(edge);
    for (std::uint32_t face = 0; face < faces_.size(); ++face) addFacePoint(face);
    return std::move(rules_);
  }

  /// The quads between the fine points.
  PolygonFaces quads() const {
    const auto firstEdge = static_cast<std::uint32_t>(vertexCount_);
    const auto firstFace = static_cast<std::uint32_t>(vertexCount_ + edges_.ends.size());
    PolygonFaces quads;
    quads.starts.resize(faces_.corners.size() + 1);
    for (std::size_t i = 0; i < quads.starts.size(); ++i) {
      quads.starts[i] = static_cast<std::uint32_t>(4 * i);
    }
    quads.corners.resize(4 * faces_.corners.size());
    for (std::uint32_t c = 0; c < faces_.corners.size(); ++c) {
      std::uint32_t* quad = quads.corners.data() + 4 * static_cast<std::size_t>(c);
      quad[0] = faces_.corners[c];
      quad[1] = firstEdge + edgeAfter(c);
      quad[2] = firstFace + faceOfCorner_[c];
      quad[3] = firstEdge + edgeBefore(c);
    }
    return quads;
  }

 private:
  /// Counted in weights of cage points, as a table of them would hold.
  void checkSize() const {
    std::uint64_t weights = 0, quads = faces_.corners.size();
    for (std::uint32_t face = 0; face < faces_.size(); ++face) {
      // Each corner brings its face's corners into an edge's and into a vertex's row.
      const std::uint64_t corners = faces_.starts[face + 1] - faces_.starts[face];
      weights += corners * (2 * corners + 4);
    }
    const std::uint64_t points = vertexCount_ + edges_.ends.size() + faces_.size();
    if (weights > kMostWeights || 6 * quads > INT32_MAX || points > INT32_MAX) {
      throw std::invalid_argument("SubdivisionPlan: the refined mesh is too large");
    }
  }

  /// How many reads there are at most: two a corner by vertices, one by faces, four an edge.
  std::size_t readCount() const {
    return 3 * faces_.corners.size() + 4 * edges_.ends.size() + vertexCount_;
  }

  /// Ends the fine point whose reads were added last.
  void finish(double own, double share) {
    const auto reads = static_cast<std::uint32_t>(rules_.reads.size()) - finishedReads_;
    const std::uint32_t point = rules_.fineCount++;
    const SubdivisionRun* last = rules_.runs.empty() ? nullptr : &rules_.runs.back();
    if (last == nullptr || last->reads != reads || last->own != own || last->share != share ||
        point == rules_.firstFacePoint) {
      rules_.runs.push_back({point, point, finishedReads_, reads, own, share});
    }
    rules_.runs.back().end = point + 1;
    finishedReads_ += reads;
  }

  void read(std::uint32_t vertex) { rules_.reads.push_back(vertex); }
  void readFacePoint(std::uint32_t corner) { read(rules_.coarseCount + faceOfCorner_[corner]); }

  void addFacePoint(std::uint32_t face) {
    const std::uint32_t begin = faces_.starts[face], end = faces_.starts[face + 1];
    for (std::uint32_t c = begin; c < end; ++c) read(faces_.corners[c]);
    finish(0.0, 1.0 / (end - begin));
  }

  bool isLoop(std::uint32_t edge) const { return edges_.ends[edge][0] == edges_.ends[edge][1]; }

  void addEdgePoint(std::uint32_t edge) {
    const auto users = edges_.cornersOf(edge);
    for (const std::uint32_t vertex : edges_.ends[edge]) read(vertex);
    if (users.size() != 2) return finish(0.0, 0.5);
    for (const std::uint32_t corner : users) readFacePoint(corner);
    finish(0.0, 0.25);
  }

  void addVertexPoint(std::uint32_t vertex) {
    const auto corners = cornersOfVertices_.of(vertex);
    gatherEdges(corners);
    std::size_t borders = 0;
    bool sheet = !corners.empty();
    for (const std::uint32_t edge : around_) {
      borders += edges_.cornersOf(edge).size() == 1;
      sheet = sheet && edges_.cornersOf(edge).size() <= 2 && !isLoop(edge);
    }
    sheet = sheet && (borders == 0 || borders == 2) && isOneFan(vertex, corners);
    if (!sheet) {
      read(vertex);
      finish(0.0, 1.0);
    } else if (borders == 2) {
      for (const std::uint32_t edge : around_) {
        if (edges_.cornersOf(edge).size() == 1) read(otherEnd(edge, vertex));
      }
      finish(0.75, 0.125);
    } else {
      // (F + 2R + (n - 3)P) / n, with R the mean of (P + neighbour) / 2 over the n edges.
      for (const std::uint32_t edge : around_) read(otherEnd(edge, vertex));
      for (const std::uint32_t corner : corners) readFacePoint(corner);
      const auto n = static_cast<double>(corners.size());
      finish((n - 2.0) / n, 1.0 / (n * n));
    }
  }

  std::uint32_t otherEnd(std::uint32_t edge, std::uint32_t vertex) const {
    return edges_.ends[edge][0] == vertex ? edges_.ends[edge][1] : edges_.ends[edge][0];
  }

  std::uint32_t edgeAfter(std::uint32_t corner) const { return edges_.edgeOfCorner[corner]; }
  std::uint32_t edgeBefore(std::uint32_t corner) const {
    return edges_.edgeOfCorner[faces_.previous(faceOfCorner_[corner], corner)];
  }

  /// The edges at a vertex, each once, ascending.
  void gatherEdges(std::span<const std::uint32_t> corners) {
    around_.clear();
    for (const std::uint32_t c : corners)
      around_.insert(around_.end(), {edgeAfter(c), edgeBefore(c)});
    std::sort(around_.begin(), around_.end());
    around_.erase(std::unique(around_.begin(), around_.end()), around_.end());
  }

  /// Whether the faces at a vertex form one fan, open or closed, by walking it from edge to edge.
  bool isOneFan(std::uint32_t vertex, std::span<const std::uint32_t> corners) {
    std::uint32_t corner = corners[0], edge = edgeAfter(corner);
    // An open fan is walked from one of its ends.
    for (const std::uint32_t c : corners) {
      for (const std::uint32_t e : {edgeAfter(c), edgeBefore(c)}) {
        if (edges_.cornersOf(e).size() == 1) {
          corner = c;
          edge = edgeAfter(c) == e ? edgeBefore(c) : edgeAfter(c);
        }
      }
    }
    const std::uint32_t first = corner;
    for (std::size_t walked = 1; walked <= corners.size(); ++walked) {
      const std::uint32_t next = across(vertex, corner, edge);
      if (next == corner || next == first) return walked == corners.size();
      edge = edgeAfter(next) == edge ? edgeBefore(next) : edgeAfter(next);
      corner = next;
    }
    return false;
  }

  /// The vertex's corner in the face on the other side of an edge; the same corner at a border.
  std::uint32_t across(std::uint32_t vertex, std::uint32_t corner, std::uint32_t edge) const {
    for (const std::uint32_t user : edges_.cornersOf(edge)) {
      const std::uint32_t ends[2] = {user, faces_.next(faceOfCorner_[user], user)};
      for (const std::uint32_t c : ends) {
        if (faces_.corners[c] == vertex && c != corner) return c;
      }
    }
    return corner;
  }

  const PolygonFaces& faces_;
  std::size_t vertexCount_;
  PolygonEdges edges_;
  CornersOfVertices cornersOfVertices_;
  std::vector<std::uint32_t> faceOfCorner_;
  std::vector<std::uint32_t> around_;
  std::uint32_t finishedReads_ = 0;
  SubdivisionRules rules_;
};

}  // namespace

RefinedLevels refineLevels(const PolygonFaces& faces, std::size_t vertexCount, int levels) {
  RefinedLevels result{{}, faces};
  for (int level = 0; level < levels; ++level) {
    RulesBuilder builder(result.faces, vertexCount);
    result.levels.push_back(builder.rules());
    result.faces = builder.quads();
    vertexCount = result.levels.back().fineCount;
  }
  return result;
}

}  // namespace kestrane::detail
