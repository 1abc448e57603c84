// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/ops/ops_fixtures.h"

namespace kestrane::test {

/// A straight strand up the Y axis.
inline StrandSet upright(std::size_t points, float size, std::size_t strands = 1) {
  StrandSet set;
  for (std::size_t i = 0; i < strands; ++i) {
    std::vector<Vec3f> line;
    std::vector<float> widths;
    for (std::size_t k = 0; k < points; ++k) {
      const float t = static_cast<float>(k) / static_cast<float>(points - 1);
      line.push_back({0, size * t, 0});
      widths.push_back(0.4f - 0.3f * t);
    }
    set.addStrand(100 + i, {}, line, widths);
  }
  return set;
}

/// A Curl without any randomness, of even radius.
inline std::unique_ptr<Operator> plainCurl(const OpsFixture& fixture, const char* shape = "helix") {
  auto op = fixture.make("Curl");
  op->parameters.set("shape", std::string(shape));
  op->parameters.set("randomness", 0.0);
  op->parameters.set("phaseRandom", 0.0);
  op->parameters.set("profile", Ramp({{0.0f, 1.0f}}));
  op->parameters.set("frequency", 1.0);
  return op;
}

}  // namespace kestrane::test
