// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/scatter_candidates.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "core/base/hash.h"
#include "core/base/parallel.h"

namespace kestrane {

namespace {

constexpr double mostPerTriangle = 5e7;
constexpr std::int64_t mostGridBands = 64;
constexpr std::uint64_t gridJitterSalt = 0x5CA77E201ull;

/// How many candidates a triangle has before thinning: its expected count, the rest of which is
/// drawn.
std::uint64_t triangleCount(const ScalpMesh& mesh, std::size_t triangle, double density,
                            std::uint64_t key) {
  double expected = mesh.triangleArea(triangle) * density;
  if (!(expected > 0.0)) return 0;
  expected = std::min(expected, mostPerTriangle);
  const double whole = std::floor(expected);
  return static_cast<std::uint64_t>(whole) + (expected - whole > unitFloat(mix64(key)) ? 1 : 0);
}

}  // namespace

std::vector<ScatterCandidate> scatterCandidates(const ScalpMesh& mesh, double density,
                                                std::uint64_t seed, float share) {
  // Every triangle draws from a key of its own, so that triangles are independent and may be
  // counted and filled in parallel.
  const std::uint64_t stream = mix64(seed);
  const std::size_t triangles = mesh.triangleCount();
  std::vector<std::uint64_t> offsets(triangles + 1, 0);
  const auto forEachKept = [&](std::size_t triangle, const auto& keep) {
    const std::uint64_t key = hashCombine(stream, triangle);
    const std::uint64_t count = triangleCount(mesh, triangle, density, key);
    for (std::uint64_t j = 0; j < count; ++j) {
      const std::uint64_t id = hashCombine(key, j);
      if (share >= 1.0f || hashPick(id, share)) keep(id);
    }
  };
  parallelRange(0, triangles, 64, [&](std::size_t first, std::size_t last) {
    for (std::size_t t = first; t < last; ++t) {
      if (share >= 1.0f) {
        offsets[t + 1] = triangleCount(mesh, t, density, hashCombine(stream, t));
      } else {
        forEachKept(t, [&](std::uint64_t) { ++offsets[t + 1]; });
      }
    }
  });
  for (std::size_t t = 0; t < triangles; ++t) offsets[t + 1] += offsets[t];
  std::vector<ScatterCandidate> candidates(offsets.back());
  parallelRange(0, triangles, 64, [&](std::size_t first, std::size_t last) {
    for (std::size_t t = first; t < last; ++t) {
      ScatterCandidate* out = candidates.data() + offsets[t];
      forEachKept(t, [&](std::uint64_t id) { *out++ = {id, static_cast<std::uint32_t>(t)}; });
    }
  });
  return candidates;
}

StrandRoot scatterRoot(const ScatterCandidate& candidate) {
  // The second and third number of the ID's own stream, spread evenly over the triangle (Turk
  // 1990).
  const std::uint64_t r = mix64(candidate.id);
  const float a = unitFloat(mix64(r + 0x3C6EF372FE94F82Aull));
  const float b = unitFloat(mix64(r + 0xDAA66D2C7DDF743Full));
  const float w = std::sqrt(a);
  return {static_cast<std::int32_t>(candidate.triangle), (1.0f - b) * w, b * w};
}

double previewShare(double share, double expected, std::size_t points, std::uint64_t budget,
                    bool previewAll) {
  double f = previewAll ? std::max(1.0, share) : share;
  const double all = static_cast<double>(points) * expected;
  if (budget > 0 && f * all > static_cast<double>(budget)) f = static_cast<double>(budget) / all;
  double floor = 0.0;
  if (!previewAll) {
    floor = 1.0;
    if (expected > 5000.0) {
      // Powers of two, so that small edits of the density do not reshuffle a preview.
      floor = std::max(std::exp2(-std::floor(std::log2(expected / 5000.0))), 0.03);
    }
  }
  return f < 1.0 ? std::max(f, floor) : 1.0;
}

namespace {

/// A triangle in UV space, and the cells of a grid that it may cover.
struct GridTriangle {
  Vec2f a, b, c;
  double area = 0.0;  // twice it, signed
  std::int64_t firstRow = 0, lastRow = -1;

  GridTriangle(const std::vector<Vec2f>& uvs, std::size_t triangle, std::int64_t rows)
      : a(uvs[3 * triangle]), b(uvs[3 * triangle + 1]), c(uvs[3 * triangle + 2]) {
    area = product(b, c, a);
    if (!std::isfinite(area) || area == 0.0) return;
    cellRange(std::min({a.y, b.y, c.y}), std::max({a.y, b.y, c.y}), rows, firstRow, lastRow);
  }

  /// The columns that it may cover in a row.
  void columnsIn(std::int64_t row, std::int64_t rows, std::int64_t columns, std::int64_t& first,
                 std::int64_t& last) const {
    // Points of a row stray from its middle by half a row at most; a little more for rounding.
    const double bottom = (static_cast<double>(row) - 0.01) / static_cast<double>(rows);
    const double top = (static_cast<double>(row) + 1.01) / static_cast<double>(rows);
    double low = std::numeric_limits<double>::max(), high = -low;
    const auto take = [&](double x) {
      low = std::min(low, x);
      high = std::max(high, x);
    };
    const Vec2f corners[] = {a, b, c};
    for (std::size_t k = 0; k < 3; ++k) {
      const Vec2f p = corners[k], q = corners[(k + 1) % 3];
      const double py = p.y, qy = q.y;
      if (py >= bottom && py <= top) take(p.x);
      for (const double y : {bottom, top}) {
        if ((py < y) == (qy < y)) continue;
        take(p.x + (static_cast<double>(q.x) - p.x) * ((y - py) / (qy - py)));
      }
    }
    if (low > high) {
      first = 0, last = -1;
      return;
    }
    cellRange(low, high, columns, first, last);
  }

  /// Whether the point lies in it; fills the weights of the second and third corner.
  bool covers(Vec2f p, StrandRoot& root) const {
    const double u = product(p, c, a) / area, v = product(b, p, a) / area;
    if (u < 0.0 || v < 0.0 || u + v > 1.0) return false;
    root.u = static_cast<float>(u);
    root.v = static_cast<float>(v);
    return true;
  }

 private:
  static double product(Vec2f p, Vec2f q, Vec2f from) {
    return (static_cast<double>(p.x) - from.x) * (static_cast<double>(q.y) - from.y) -
           (static_cast<double>(q.x) - from.x) * (static_cast<double>(p.y) - from.y);
  }
  static void cellRange(double low, double high, std::int64_t count, std::int64_t& first,
                        std::int64_t& last) {
    // A jittered point strays from its cell's middle by half a cell at most.
    const double scale = static_cast<double>(count);
    first = static_cast<std::int64_t>(std::clamp(std::floor(low * scale) - 1.0, 0.0, scale));
    last = static_cast<std::int64_t>(std::clamp(std::floor(high * scale) + 1.0, -1.0, scale - 1.0));
  }
};

/// The columns of a row of cells that nobody has claimed. Each claimed one leads on to the next, so
/// that triangles over triangles do not look at the same cells again and again.
class FreeColumns {
 public:
  explicit FreeColumns(std::int64_t columns) : next_(static_cast<std::size_t>(columns) + 1) {
    std::iota(next_.begin(), next_.end(), 0u);
  }
  std::int64_t from(std::int64_t column) {
    auto at = static_cast<std::uint32_t>(column);
    while (next_[at] != at) at = next_[at] = next_[next_[at]];
    return at;
  }
  void claim(std::int64_t column) { ++next_[static_cast<std::size_t>(column)]; }

 private:
  std::vector<std::uint32_t> next_;
};

}  // namespace

GridCandidates scatterUvGrid(const ScalpMesh& mesh, std::int64_t rows, std::int64_t columns,
                             float jitter, std::uint64_t seed, float share) {
  const std::uint64_t stream = mix64(seed);
  const auto& uvs = mesh.uvs();
  const auto placeOf = [&](std::int64_t row, std::int64_t column) {
    const std::uint64_t id =
        hashCombine(stream, static_cast<std::uint64_t>(row * columns + column));
    const float du = unitFloat(hashCombine(id, gridJitterSalt)) - 0.5f;
    const float dv = unitFloat(hashCombine(id, gridJitterSalt + 1)) - 0.5f;
    return Vec2f{(static_cast<float>(column) + 0.5f + jitter * du) / static_cast<float>(columns),
                 (static_cast<float>(row) + 0.5f + jitter * dv) / static_cast<float>(rows)};
  };
  // Bands of rows are filled side by side; each takes its triangles in index order, so that the
  // lowest one that covers a cell's point has the cell.
  const std::int64_t bandRows = (rows + mostGridBands - 1) / mostGridBands;
  std::vector<std::vector<std::uint32_t>> bands(
      static_cast<std::size_t>((rows + bandRows - 1) / bandRows));
  for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
    const GridTriangle triangle(uvs, t, rows);
    for (std::int64_t band = triangle.firstRow / bandRows; band * bandRows <= triangle.lastRow;
         ++band) {
      bands[static_cast<std::size_t>(band)].push_back(static_cast<std::uint32_t>(t));
    }
  }
  std::vector<StrandRoot> cells(static_cast<std::size_t>(rows * columns));
  parallelRange(0, bands.size(), 1, [&](std::size_t firstBand, std::size_t lastBand) {
    for (std::size_t band = firstBand; band < lastBand; ++band) {
      const std::int64_t low = static_cast<std::int64_t>(band) * bandRows;
      const std::int64_t high = std::min(low + bandRows, rows) - 1;
      std::vector<FreeColumns> free(static_cast<std::size_t>(high - low + 1), FreeColumns(columns));
      for (const std::uint32_t t : bands[band]) {
        const GridTriangle triangle(uvs, t, rows);
        for (std::int64_t row = std::max(low, triangle.firstRow);
             row <= std::min(high, triangle.lastRow); ++row) {
          FreeColumns& left = free[static_cast<std::size_t>(row - low)];
          std::int64_t first, last;
          triangle.columnsIn(row, rows, columns, first, last);
          for (std::int64_t column = left.from(first); column <= last;
               column = left.from(column + 1)) {
            StrandRoot root{static_cast<std::int32_t>(t), 0.0f, 0.0f};
            if (!triangle.covers(placeOf(row, column), root)) continue;
            cells[static_cast<std::size_t>(row * columns + column)] = root;
            left.claim(column);
          }
        }
      }
    }
  });
  GridCandidates grid;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::uint64_t id = hashCombine(stream, i);
    if (cells[i].face < 0 || (share < 1.0f && !hashPick(id, share))) continue;
    grid.ids.push_back(id);
    grid.roots.push_back(cells[i]);
  }
  return grid;
}

}  // namespace kestrane
