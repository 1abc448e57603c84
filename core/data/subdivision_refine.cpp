// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/subdivision_refine.h"

#include <algorithm>
#include <cstring>

#include "core/base/parallel.h"

namespace kestrane::detail {

namespace {

constexpr std::size_t kGrain = 2048;

/// Up to four of the floats that stand `width` apart for each point.
template <int kLanes>
struct Columns {
  float* first;
  std::size_t width;

  void put(std::size_t point, Float4 value) const {
    std::memcpy(first + width * point, &value, kLanes * sizeof(float));
  }
};

/// Points of a level between: whole vectors, that the next step reads with one load each.
struct Points {
  Float4* first;

  void put(std::size_t point, Float4 value) const { first[point] = value; }
};

/// Makes the fine points from `begin` to `end` of a run. kReads is the number of its reads, or 0
/// for any number.
template <int kReads, bool kOwn, class Result>
void applyRun(const SubdivisionRun& run, const std::uint32_t* allReads, const Float4* points,
              std::size_t begin, std::size_t end, Result result) {
  const std::size_t reads = kReads > 0 ? kReads : run.reads;
  const Float4 own = splat(static_cast<float>(run.own));
  const Float4 share = splat(static_cast<float>(run.share));
  const std::uint32_t* read = allReads + run.firstRead + (begin - run.begin) * reads;
  for (std::size_t point = begin; point < end; ++point, read += reads) {
    Float4 sum = points[read[0]];
    for (std::size_t k = 1; k < reads; ++k) sum = sum + points[read[k]];
    sum = share * sum;
    if constexpr (kOwn) sum = sum + own * points[point];
    result.put(point, sum);
  }
}

/// Makes the fine points from `begin` to `end` of a step.
template <class Result>
void applyRules(const SubdivisionRules& rules, const Float4* points, std::size_t begin,
                std::size_t end, Result result) {
  auto run = std::upper_bound(
      rules.runs.begin(), rules.runs.end(), begin,
      [](std::size_t point, const SubdivisionRun& later) { return point < later.end; });
  for (; begin < end; ++run) {
    const std::size_t stop = std::min<std::size_t>(end, run->end);
    const std::uint32_t* reads = rules.reads.data();
    if (run->own != 0.0) {
      // Vertex points where four faces meet, then all others.
      if (run->reads == 8) {
        applyRun<8, true>(*run, reads, points, begin, stop, result);
      } else {
        applyRun<0, true>(*run, reads, points, begin, stop, result);
      }
    } else if (run->reads == 4) {
      applyRun<4, false>(*run, reads, points, begin, stop, result);  // edges and quads
    } else {
      applyRun<0, false>(*run, reads, points, begin, stop, result);
    }
    begin = stop;
  }
}

/// Face points go to the step's result, and to where its other points read them.
template <class Result>
struct FacePoints {
  Float4* first;
  std::size_t firstPoint;
  Result result;

  void put(std::size_t point, Float4 value) const {
    first[point - firstPoint] = value;
    result.put(point, value);
  }
};

/// One step. Behind the coarse points there is room for the face points, which are made first.
template <class Result>
void refineStep(const SubdivisionRules& rules, Float4* points, Result result) {
  const auto apply = [&](std::size_t first, std::size_t last, const auto& to) {
    kestrane::parallelRange(first, last, kGrain, [&](std::size_t begin, std::size_t end) {
      applyRules(rules, points, begin, end, to);
    });
  };
  apply(rules.firstFacePoint, rules.fineCount,
        FacePoints<Result>{points + rules.coarseCount, rules.firstFacePoint, result});
  apply(0, rules.firstFacePoint, result);
}

/// The points that a step reads: the coarse ones and its face points.
std::size_t readCount(const SubdivisionRules& rules) {
  return static_cast<std::size_t>(rules.coarseCount) + rules.facePointCount();
}

template <int kLanes>
void refineColumns(std::span<const SubdivisionRules> levels, const float* values, std::size_t width,
                   float* fine, Float4* points) {
  for (std::size_t point = 0; point < levels[0].coarseCount; ++point) {
    points[point] = splat(0.0f);
    std::memcpy(&points[point], values + width * point, kLanes * sizeof(float));
  }
  for (const SubdivisionRules& rules : levels.first(levels.size() - 1)) {
    Float4* finer = points + readCount(rules);
    refineStep(rules, points, Points{finer});
    points = finer;
  }
  refineStep(levels.back(), points, Columns<kLanes>{fine, width});
}

}  // namespace

void refineValues(std::span<const SubdivisionRules> levels, std::span<const float> values,
                  int width, std::span<float> fine, Array<Float4>& scratch) {
  std::size_t scratchCount = 0;
  for (const SubdivisionRules& rules : levels) scratchCount += readCount(rules);
  if (scratch.size() < scratchCount) scratch = Array<Float4>(scratchCount);
  const auto stride = static_cast<std::size_t>(width);
  for (std::size_t column = 0; column < stride; column += 4) {
    const float* from = values.data() + column;
    float* to = fine.data() + column;
    switch (stride - column) {
      case 1:
        refineColumns<1>(levels, from, stride, to, scratch.data());
        break;
      case 2:
        refineColumns<2>(levels, from, stride, to, scratch.data());
        break;
      case 3:
        refineColumns<3>(levels, from, stride, to, scratch.data());
        break;
      default:
        refineColumns<4>(levels, from, stride, to, scratch.data());
    }
  }
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
  std::vector<float> finest(refined.levels.back().fineCount * static_cast<std::size_t>(width));
  Array<Float4> scratch;
  refineValues(refined.levels, current, width, finest, scratch);
  std::vector<float> result;
  result.reserve(refined.faces.corners.size() * static_cast<std::size_t>(width));
  for (const std::uint32_t corner : refined.faces.corners) {
    const float* value = finest.data() + static_cast<std::size_t>(width) * corner;
    result.insert(result.end(), value, value + width);
  }
  return result;
}

}  // namespace kestrane::detail
