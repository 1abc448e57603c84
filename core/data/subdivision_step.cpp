// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/subdivision_step.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <stdexcept>

#include "core/base/parallel.h"
#include "core/data/polygon_edges.h"

namespace kestrane::detail {

namespace {

/// 2 GB of them: a level that refines 5 million quads, but not the few large polygons whose weights
/// grow by the square of their corners.
constexpr std::uint64_t kMostWeights = 1u << 28;

/// Corners sorted by their vertex, in compressed rows.
struct CornersOfVertices {
  std::vector<std::uint32_t> starts;
  std::vector<std::uint32_t> corners;

  CornersOfVertices(std::span<const std::uint32_t> vertices, std::size_t vertexCount)
      : starts(vertexCount + 1, 0), corners(vertices.size()) {
    for (const std::uint32_t vertex : vertices) ++starts[vertex + 1];
    std::partial_sum(starts.begin(), starts.end(), starts.begin());
    std::vector<std::uint32_t> filled(starts.begin(), starts.end() - 1);
    for (std::uint32_t c = 0; c < vertices.size(); ++c) corners[filled[vertices[c]]++] = c;
  }
  std::span<const std::uint32_t> of(std::size_t vertex) const {
    return std::span(corners).subspan(starts[vertex], starts[vertex + 1] - starts[vertex]);
  }
};

/// Adds up the weights of one row, each coarse point once, in the order of first mention.
class Row {
 public:
  explicit Row(std::size_t vertexCount) : places_(vertexCount, 0) {}

  void add(std::uint32_t vertex, double weight) {
    std::uint32_t& place = places_[vertex];
    if (place == 0) {
      vertices_.push_back(vertex);
      weights_.push_back(0.0);
      place = static_cast<std::uint32_t>(vertices_.size());
    }
    weights_[place - 1] += weight;
  }

  void finish(SubdivisionStep& step) {
    for (std::size_t i = 0; i < vertices_.size(); ++i) {
      step.indices.push_back(vertices_[i]);
      step.weights.push_back(static_cast<float>(weights_[i]));
      places_[vertices_[i]] = 0;
    }
    step.offsets.push_back(static_cast<std::uint32_t>(step.indices.size()));
    vertices_.clear();
    weights_.clear();
  }

 private:
  std::vector<std::uint32_t> places_;  // per vertex its place in the row, counted from 1; 0: none
  std::vector<std::uint32_t> vertices_;
  std::vector<double> weights_;
};

class StepBuilder {
 public:
  StepBuilder(const PolygonFaces& faces, std::size_t vertexCount)
      : faces_(faces),
        vertexCount_(vertexCount),
        edges_(findPolygonEdges(faces.starts, faces.corners, vertexCount)),
        cornersOfVertices_(faces.corners, vertexCount),
        faceOfCorner_(faces.corners.size()),
        row_(vertexCount) {
    for (std::uint32_t face = 0; face < faces.size(); ++face) {
      std::fill(faceOfCorner_.begin() + faces.starts[face],
                faceOfCorner_.begin() + faces.starts[face + 1], face);
    }
  }

  RefinedFaces build() {
    checkSize();
    SubdivisionStep& step = result_.step;
    step.offsets.reserve(vertexCount_ + edges_.ends.size() + faces_.size() + 1);
    step.offsets.push_back(0);
    for (std::uint32_t vertex = 0; vertex < vertexCount_; ++vertex) {
      addVertexPoint(vertex);
      row_.finish(step);
    }
    for (std::uint32_t edge = 0; edge < edges_.ends.size(); ++edge) {
      addEdgePoint(edge);
      row_.finish(step);
    }
    for (std::uint32_t face = 0; face < faces_.size(); ++face) {
      addFacePoint(face, 1.0);
      row_.finish(step);
    }
    makeQuads();
    return std::move(result_);
  }

 private:
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

  void addFacePoint(std::uint32_t face, double weight) {
    const std::uint32_t begin = faces_.starts[face], end = faces_.starts[face + 1];
    for (std::uint32_t c = begin; c < end; ++c) row_.add(faces_.corners[c], weight / (end - begin));
  }

  bool isLoop(std::uint32_t edge) const { return edges_.ends[edge][0] == edges_.ends[edge][1]; }

  void addEdgePoint(std::uint32_t edge) {
    const auto users = edges_.cornersOf(edge);
    const double share = users.size() == 2 ? 0.25 : 0.5;
    for (const std::uint32_t vertex : edges_.ends[edge]) row_.add(vertex, share);
    if (users.size() != 2) return;
    for (const std::uint32_t corner : users) addFacePoint(faceOfCorner_[corner], 0.25);
  }

  void addVertexPoint(std::uint32_t vertex) {
    const auto corners = cornersOfVertices_.of(vertex);
    gatherEdges(corners);
    row_.add(vertex, 0.0);  // its own point comes first in the row
    std::size_t borders = 0;
    bool sheet = !corners.empty();
    for (const std::uint32_t edge : around_) {
      borders += edges_.cornersOf(edge).size() == 1;
      sheet = sheet && edges_.cornersOf(edge).size() <= 2 && !isLoop(edge);
    }
    sheet = sheet && (borders == 0 || borders == 2) && isOneFan(vertex, corners);
    if (!sheet) {
      row_.add(vertex, 1.0);
    } else if (borders == 2) {
      row_.add(vertex, 0.75);
      for (const std::uint32_t edge : around_) {
        if (edges_.cornersOf(edge).size() == 1) row_.add(otherEnd(edge, vertex), 0.125);
      }
    } else {
      const auto n = static_cast<double>(corners.size());
      row_.add(vertex, (n - 3.0) / n);
      const auto sides = static_cast<double>(around_.size());
      for (const std::uint32_t edge : around_) {
        for (const std::uint32_t end : edges_.ends[edge]) row_.add(end, 1.0 / (n * sides));
      }
      for (const std::uint32_t c : corners) addFacePoint(faceOfCorner_[c], 1.0 / (n * n));
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

  void makeQuads() {
    const auto firstEdge = static_cast<std::uint32_t>(vertexCount_);
    const auto firstFace = static_cast<std::uint32_t>(vertexCount_ + edges_.ends.size());
    PolygonFaces& quads = result_.faces;
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
  }

  const PolygonFaces& faces_;
  std::size_t vertexCount_;
  PolygonEdges edges_;
  CornersOfVertices cornersOfVertices_;
  std::vector<std::uint32_t> faceOfCorner_;
  std::vector<std::uint32_t> around_;
  Row row_;
  RefinedFaces result_;
};

template <int kWidth>
void applyRows(const SubdivisionStep& step, const float* values, float* out, std::size_t begin,
               std::size_t end) {
  const std::uint32_t* indices = step.indices.data();
  const float* weights = step.weights.data();
  std::uint32_t k = step.offsets[begin];
  for (std::size_t row = begin; row < end; ++row) {
    float sums[kWidth] = {};
    for (const std::uint32_t stop = step.offsets[row + 1]; k < stop; ++k) {
      const float* value = values + kWidth * static_cast<std::size_t>(indices[k]);
      for (int i = 0; i < kWidth; ++i) sums[i] += weights[k] * value[i];
    }
    for (int i = 0; i < kWidth; ++i) out[kWidth * row + i] = sums[i];
  }
}

void applyWideRows(const SubdivisionStep& step, const float* values, std::size_t width, float* out,
                   std::size_t begin, std::size_t end) {
  std::fill(out + width * begin, out + width * end, 0.0f);
  for (std::size_t row = begin; row < end; ++row) {
    float* sums = out + width * row;
    for (std::uint32_t k = step.offsets[row]; k < step.offsets[row + 1]; ++k) {
      const float* value = values + width * step.indices[k];
      for (std::size_t i = 0; i < width; ++i) sums[i] += step.weights[k] * value[i];
    }
  }
}

}  // namespace

RefinedFaces refineFaces(const PolygonFaces& faces, std::size_t vertexCount) {
  return StepBuilder(faces, vertexCount).build();
}

RefinedLevels refineLevels(const PolygonFaces& faces, std::size_t vertexCount, int levels) {
  RefinedLevels result{{}, faces};
  for (int level = 0; level < levels; ++level) {
    RefinedFaces refined = refineFaces(result.faces, vertexCount);
    vertexCount = refined.step.offsets.size() - 1;
    result.steps.push_back(std::move(refined.step));
    result.faces = std::move(refined.faces);
  }
  return result;
}

void applyStep(const SubdivisionStep& step, std::span<const float> values, int width,
               std::span<float> out) {
  kestrane::parallelRange(
      0, step.offsets.size() - 1, 4096, [&](std::size_t begin, std::size_t end) {
        switch (width) {
          case 1:
            return applyRows<1>(step, values.data(), out.data(), begin, end);
          case 2:
            return applyRows<2>(step, values.data(), out.data(), begin, end);
          case 3:
            return applyRows<3>(step, values.data(), out.data(), begin, end);
          case 4:
            return applyRows<4>(step, values.data(), out.data(), begin, end);
          default:
            return applyWideRows(step, values.data(), static_cast<std::size_t>(width), out.data(),
                                 begin, end);
        }
      });
}

std::vector<float> refineCornerValues(const PolygonFaces& faces, std::size_t vertexCount,
                                      std::span<const float> cornerValues, int width, int levels) {
  const auto bytes = sizeof(float) * static_cast<std::size_t>(width);
  std::vector<float> values(cornerValues.begin(), cornerValues.end());
  for (float& value : values) value += 0.0f;  // no -0, which differs from 0 in its bits alone
  const auto valueOf = [&](std::uint32_t corner) {
    return values.data() + static_cast<std::size_t>(width) * corner;
  };
  // A vertex of the new surface for every vertex and value.
  PolygonFaces joined = faces;
  std::vector<float> current;
  std::uint32_t count = 0;
  CornersOfVertices byVertex(faces.corners, vertexCount);
  std::vector<std::uint32_t> corners;
  for (std::size_t vertex = 0; vertex < vertexCount; ++vertex) {
    corners.assign(byVertex.of(vertex).begin(), byVertex.of(vertex).end());
    std::sort(corners.begin(), corners.end(), [&](std::uint32_t a, std::uint32_t b) {
      const int order = std::memcmp(valueOf(a), valueOf(b), bytes);
      return order < 0 || (order == 0 && a < b);
    });
    for (std::size_t i = 0; i < corners.size(); ++i) {
      const float* value = valueOf(corners[i]);
      if (i == 0 || std::memcmp(value, valueOf(corners[i - 1]), bytes) != 0) {
        current.insert(current.end(), value, value + width);
        ++count;
      }
      joined.corners[corners[i]] = count - 1;
    }
  }
  const RefinedLevels refined = refineLevels(joined, count, levels);
  for (const SubdivisionStep& step : refined.steps) {
    std::vector<float> finer((step.offsets.size() - 1) * static_cast<std::size_t>(width));
    applyStep(step, current, width, finer);
    current = std::move(finer);
  }
  std::vector<float> result;
  result.reserve(refined.faces.corners.size() * static_cast<std::size_t>(width));
  for (const std::uint32_t corner : refined.faces.corners) {
    const float* value = current.data() + static_cast<std::size_t>(width) * corner;
    result.insert(result.end(), value, value + width);
  }
  return result;
}

}  // namespace kestrane::detail
