// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Grows the default graph on one square with what an installed Kestrane offers.

#include <cstdio>

#include "core/session/groom_session.h"

int main() {
  using namespace kestrane;
  auto square =
      std::make_shared<ScalpMesh>(std::vector<Vec3f>{{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {0, 0, 1}},
                                  std::vector<ScalpMesh::Triangle>{{0, 2, 1}, {0, 3, 2}});
  GroomSession session;
  session.setScalp(square);
  if (const auto message = session.setGraph(GroomSession::defaultGraph())) {
    std::fprintf(stderr, "%s\n", message->text.c_str());
    return 1;
  }
  for (const SessionMessage& message : session.evaluate({})) {
    std::fprintf(stderr, "%s\n", message.text.c_str());
    if (message.isError) return 1;
  }
  const StrandSetPtr strands = session.strands();
  // The default density is 200 on an area of 1; the count is drawn per triangle.
  return strands && strands->strandCount() >= 198 && strands->strandCount() <= 202 ? 0 : 1;
}
