// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/data/subdivision_step.h"

#include <span>

namespace kestrane::detail {

namespace {

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

}  // namespace

SubdivisionStep weightsOf(const SubdivisionRules& rules) {
  std::vector<std::span<const std::uint32_t>> cornersOfFaces;
  cornersOfFaces.reserve(rules.facePointCount());
  const auto readsOf = [&](const SubdivisionRun& run, std::uint32_t point) {
    return std::span(rules.reads)
        .subspan(run.firstRead + (point - run.begin) * run.reads, run.reads);
  };
  for (const SubdivisionRun& run : rules.runs) {
    if (run.begin < rules.firstFacePoint) continue;
    for (std::uint32_t point = run.begin; point < run.end; ++point) {
      cornersOfFaces.push_back(readsOf(run, point));
    }
  }
  SubdivisionStep step;
  step.offsets.reserve(rules.fineCount + 1);
  step.offsets.push_back(0);
  Row row(rules.coarseCount);
  for (const SubdivisionRun& run : rules.runs) {
    for (std::uint32_t point = run.begin; point < run.end; ++point) {
      if (run.own != 0.0) row.add(point, run.own);
      for (const std::uint32_t read : readsOf(run, point)) {
        if (read < rules.coarseCount) {
          row.add(read, run.share);
          continue;
        }
        const std::span<const std::uint32_t> corners = cornersOfFaces[read - rules.coarseCount];
        for (const std::uint32_t corner : corners) {
          row.add(corner, run.share / static_cast<double>(corners.size()));
        }
      }
      row.finish(step);
    }
  }
  return step;
}

}  // namespace kestrane::detail
