// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/base/json_fwd.h"

namespace kestrane {

/// What a Cards node made.
struct CardNodeStats {
  std::uint64_t triangles = 0;
  std::uint64_t textures = 0;
  std::uint64_t feathers = 0;
  bool stale = false;
};

/// What a Simulate node holds.
struct SimulationStats {
  std::int64_t startFrame = 0;
  std::uint64_t frames = 0;  // solved
  bool live = false;
  bool baked = false;
  std::int64_t bakedFirst = 0;
  std::int64_t bakedLast = 0;
  std::string bakedFile;
  double stepMs = 0.0;
  std::uint64_t bytes = 0;
};

/// The figures of a session's last result. Entries per node stand in the order of the graph's
/// nodes.
struct GroomStats {
  std::string view;  // "viewport" or "render"; empty before the first evaluation
  std::uint64_t strands = 0;
  std::uint64_t points = 0;
  std::uint64_t guides = 0;
  std::uint64_t cards = 0;
  std::uint64_t cardStrands = 0;
  std::uint64_t cardTriangles = 0;
  std::uint64_t cardTextures = 0;
  std::uint64_t cardFeathers = 0;
  bool cardsBaked = false;
  bool cardsStale = false;
  std::vector<std::pair<std::string, CardNodeStats>> cardNodes;
  std::string hairColor;   // the node whose parameters the hair shader takes; empty for none
  std::string renderData;  // the same
  std::vector<std::string> colorNodes;
  std::vector<std::string> colorBlends;
  std::vector<std::pair<std::string, double>> times;       // milliseconds
  std::vector<std::pair<std::string, std::string>> runs;   // how each node ran last
  std::vector<std::string> channels;                       // strand channels, then point channels
  std::vector<std::pair<std::string, std::string>> notes;  // warnings and advice
  std::uint64_t scalpHistoryFrames = 0;
  std::uint64_t scalpHistoryReads = 0;
  std::vector<std::pair<std::string, std::uint64_t>> instances;  // per Instance node
  std::uint64_t restEvaluations = 0;
  std::uint64_t distanceFieldsMade = 0;
  std::vector<std::string> strokeDocument;  // the kinds of data that an active stroke holds
  std::vector<std::pair<std::string, SimulationStats>> simulations;

  /// One object; the keys stand in the order of the fields.
  Json toJson() const;
};

}  // namespace kestrane
