// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/surface_reach.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <queue>

#include "core/base/parallel.h"
#include "core/data/surface_walk.h"

namespace kestrane {

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
// How much longer than the true way a way over edges may be on a smooth surface.
constexpr float overrated = 1.25f;

/// The ways between vertices: edges, and the diagonals across pairs of triangles where the unfolded
/// pair is convex, as compressed rows.
struct VertexGraph {
  struct Way {
    std::uint32_t to;
    float length;
  };
  std::vector<std::uint32_t> offsets;
  std::vector<Way> ways;

  explicit VertexGraph(const ScalpMesh& mesh) {
    struct Link {
      std::uint32_t from, to;
      float length;
      bool operator<(const Link& other) const {
        return from != other.from ? from < other.from : to < other.to;
      }
    };
    std::vector<Link> links;
    const auto& points = mesh.points();
    const auto& triangles = mesh.triangles();
    const auto& neighbors = mesh.adjacency().neighbors;
    const auto link = [&](std::int32_t a, std::int32_t b, float size) {
      if (!std::isfinite(size)) return;
      links.push_back({static_cast<std::uint32_t>(a), static_cast<std::uint32_t>(b), size});
      links.push_back({static_cast<std::uint32_t>(b), static_cast<std::uint32_t>(a), size});
    };
    for (std::size_t t = 0; t < triangles.size(); ++t) {
      for (std::size_t k = 0; k < 3; ++k) {
        const std::int32_t a = triangles[t][k], b = triangles[t][(k + 1) % 3];
        link(a, b,
             distance(points[static_cast<std::size_t>(a)], points[static_cast<std::size_t>(b)]));
        const std::int32_t other = neighbors[t][k];
        if (other < static_cast<std::int32_t>(t)) continue;
        const std::int32_t c = triangles[t][(k + 2) % 3];
        std::int32_t d = -1;
        for (const std::int32_t corner : triangles[static_cast<std::size_t>(other)]) {
          if (corner != a && corner != b) d = corner;
        }
        if (d >= 0) link(c, d, acrossEdge(points, a, b, c, d));
      }
    }
    std::sort(links.begin(), links.end());
    offsets.assign(points.size() + 1, 0);
    for (std::size_t i = 0; i < links.size(); ++i) {
      if (i > 0 && links[i].from == links[i - 1].from && links[i].to == links[i - 1].to) {
        ways.back().length = std::min(ways.back().length, links[i].length);
        continue;
      }
      ways.push_back({links[i].to, links[i].length});
      ++offsets[links[i].from + 1];
    }
    for (std::size_t v = 0; v < points.size(); ++v) offsets[v + 1] += offsets[v];
  }

  /// The length of the straight way from c to d over the edge ab with both triangles laid flat;
  /// infinite where it would leave them.
  static float acrossEdge(const std::vector<Vec3f>& points, std::int32_t a, std::int32_t b,
                          std::int32_t c, std::int32_t d) {
    const auto at = [&](std::int32_t i) { return points[static_cast<std::size_t>(i)]; };
    const Vec3f edge = at(b) - at(a);
    const float size = length(edge);
    if (!(size > 0.0f)) return infinity;
    const Vec3f axis = edge / size;
    const auto flat = [&](Vec3f p) {
      const Vec3f from = p - at(a);
      const float along = dot(from, axis);
      return Vec2f{along, length(from - axis * along)};
    };
    const Vec2f pc = flat(at(c)), pd = flat(at(d));
    const float height = pc.y + pd.y;
    if (!(height > 0.0f)) return infinity;
    const float crossing = pc.x + (pd.x - pc.x) * (pc.y / height);
    if (crossing < 0.0f || crossing > size) return infinity;
    return std::hypot(pd.x - pc.x, height);
  }
};

/// The lowest vertex that each vertex is joined with by triangles.
std::vector<std::uint32_t> findPieces(const ScalpMesh& mesh) {
  std::vector<std::uint32_t> parent(mesh.points().size());
  std::iota(parent.begin(), parent.end(), 0u);
  const auto lowest = [&](std::int32_t vertex) {
    auto at = static_cast<std::uint32_t>(vertex);
    while (parent[at] != at) at = parent[at] = parent[parent[at]];
    return at;
  };
  for (const auto& [a, b, c] : mesh.triangles()) {
    const std::uint32_t first = lowest(a), second = lowest(b), third = lowest(c);
    const std::uint32_t low = std::min({first, second, third});
    parent[first] = parent[second] = parent[third] = low;
  }
  for (std::uint32_t& piece : parent) piece = parent[piece];
  return parent;
}

float longestEdge(const ScalpMesh& mesh, std::int32_t face) {
  const auto& t = mesh.triangles()[static_cast<std::size_t>(face)];
  const auto at = [&](int k) {
    return mesh.points()[static_cast<std::size_t>(t[static_cast<std::size_t>(k)])];
  };
  return std::max({distance(at(0), at(1)), distance(at(1), at(2)), distance(at(2), at(0))});
}

}  // namespace

SurfaceReach::SurfaceReach(const ScalpMesh& mesh, std::span<const StrandRoot> seeds,
                           std::span<const float> limits)
    : mesh_(mesh),
      seeds_(seeds.begin(), seeds.end()),
      limits_(limits.begin(), limits.end()),
      pieces_(findPieces(mesh)),
      seeded_(pieces_.size(), 0),
      slack_(seeds.size(), 0.0f) {
  for (const StrandRoot seed : seeds_) {
    if (mesh.hasFace(seed.face)) seeded_[pieceOf(seed.face)] = 1;
  }
  const VertexGraph graph(mesh);
  const std::size_t vertices = mesh.points().size();
  struct Reached {
    std::uint32_t vertex;
    float distance;
  };
  // Dijkstra (1959) from every seed, as far as its limit.
  std::vector<std::vector<Reached>> reached(seeds.size());
  parallelRange(0, seeds.size(), 4, [&](std::size_t first, std::size_t last) {
    std::vector<float> best(vertices, infinity);
    using Open = std::pair<float, std::uint32_t>;
    for (std::size_t s = first; s < last; ++s) {
      const StrandRoot root = seeds_[s];
      if (!mesh.hasFace(root.face)) continue;
      slack_[s] = 0.5f * longestEdge(mesh, root.face);
      const float limit = limits[s] * overrated + 2.0f * slack_[s];
      std::priority_queue<Open, std::vector<Open>, std::greater<>> open;
      const Vec3f start = mesh.positionAt(root);
      for (const std::int32_t corner : mesh.triangles()[static_cast<std::size_t>(root.face)]) {
        const auto v = static_cast<std::uint32_t>(corner);
        const float d = distance(start, mesh.points()[v]);
        if (d < best[v]) open.push({best[v] = d, v});
      }
      std::vector<std::uint32_t> touched;
      while (!open.empty()) {
        const auto [d, v] = open.top();
        open.pop();
        if (d > best[v] || d > limit) continue;
        reached[s].push_back({v, d});
        for (std::uint32_t i = graph.offsets[v]; i < graph.offsets[v + 1]; ++i) {
          const auto& way = graph.ways[i];
          const float next = d + way.length;
          if (next < best[way.to]) {
            best[way.to] = next;
            touched.push_back(way.to);
            open.push({next, way.to});
          }
        }
      }
      for (const std::uint32_t v : touched) best[v] = infinity;
      for (const std::int32_t corner : mesh.triangles()[static_cast<std::size_t>(root.face)]) {
        best[static_cast<std::size_t>(corner)] = infinity;
      }
    }
  });
  offsets_.assign(vertices + 1, 0);
  for (const auto& list : reached) {
    for (const Reached& r : list) ++offsets_[r.vertex + 1];
  }
  for (std::size_t v = 0; v < vertices; ++v) offsets_[v + 1] += offsets_[v];
  entries_.resize(offsets_.back());
  std::vector<std::uint32_t> filled(offsets_.begin(), offsets_.end() - 1);
  for (std::size_t s = 0; s < reached.size(); ++s) {
    for (const Reached& r : reached[s]) {
      entries_[filled[r.vertex]++] = {static_cast<std::uint32_t>(s), r.distance};
    }
  }
}

std::uint32_t SurfaceReach::pieceOf(std::int32_t face) const {
  return pieces_[static_cast<std::size_t>(mesh_.triangles()[static_cast<std::size_t>(face)][0])];
}

void SurfaceReach::enter(std::int32_t face, Face& out) const {
  out.face = face;
  out.seeds_.clear();
  out.piece_ = pieceOf(face);
  out.hasSeeds_ = seeded_[out.piece_] != 0;
  const auto& triangle = mesh_.triangles()[static_cast<std::size_t>(face)];
  std::uint32_t at[3], end[3];
  for (std::size_t k = 0; k < 3; ++k) {
    at[k] = offsets_[static_cast<std::size_t>(triangle[k])];
    end[k] = offsets_[static_cast<std::size_t>(triangle[k]) + 1];
  }
  for (;;) {
    std::uint32_t next = UINT32_MAX;
    for (std::size_t k = 0; k < 3; ++k) {
      if (at[k] < end[k]) next = std::min(next, entries_[at[k]].seed);
    }
    if (next == UINT32_MAX) return;
    Face::Seed seed{next, false, {infinity, infinity, infinity}};
    for (std::size_t k = 0; k < 3; ++k) {
      if (at[k] < end[k] && entries_[at[k]].seed == next) {
        seed.corners[k] = entries_[at[k]++].distance;
      }
    }
    const auto& home = mesh_.triangles()[static_cast<std::size_t>(seeds_[next].face)];
    for (const std::int32_t a : home) {
      for (const std::int32_t b : triangle) seed.beside = seed.beside || a == b;
    }
    out.seeds_.push_back(seed);
  }
}

float SurfaceReach::distanceTo(const Face& face, Vec3f position, std::uint32_t seed,
                               float straight) const {
  const auto found =
      std::lower_bound(face.seeds_.begin(), face.seeds_.end(), seed,
                       [](const Face::Seed& s, std::uint32_t wanted) { return s.seed < wanted; });
  if (found == face.seeds_.end() || found->seed != seed) {
    const std::int32_t home = seeds_[seed].face;
    const bool joined = mesh_.hasFace(home) && pieceOf(home) == face.piece_;
    return joined ? std::max(straight, limits_[seed]) : infinity;
  }
  if (found->beside) return straight;
  const auto& triangle = mesh_.triangles()[static_cast<std::size_t>(face.face)];
  float along = infinity;
  float edge = 0.0f;
  for (std::size_t k = 0; k < 3; ++k) {
    const Vec3f corner = mesh_.points()[static_cast<std::size_t>(triangle[k])];
    const Vec3f next = mesh_.points()[static_cast<std::size_t>(triangle[(k + 1) % 3])];
    along = std::min(along, found->corners[k] + distance(corner, position));
    edge = std::max(edge, distance(corner, next));
  }
  return std::max(straight, (along - 0.5f * edge - slack_[seed]) / overrated);
}

}  // namespace kestrane
