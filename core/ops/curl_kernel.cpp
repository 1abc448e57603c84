// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/curl_kernel.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numbers>

#include "core/base/hash.h"
#include "core/base/math_functions.h"

namespace kestrane {

namespace {

constexpr double fullTurn = 2.0 * std::numbers::pi;
// More turns than any strand can show; places on them are still told apart to a millionth.
constexpr double mostTurns = 1e9;
// A segment this much longer than asked for, in shares of it, needs no point, nor does a kink this
// close to one: it would be there for rounding's sake.
constexpr double slack = 1e-3;
constexpr std::size_t profilePieces = 1024;

// What is drawn by a curl's key.
enum Draw : std::uint64_t { phaseDraw = 1, frequencyDraw, radiusDraw, spacingDraw };

float draw(std::uint64_t key, std::uint64_t which) {
  return unitFloat(mix64(key + which));
}

/// The part of turns that matters to an angle, -1/2 to 1/2.
double withinTurn(double turns) {
  constexpr double rounder = 0x1.8p+52;  // added and taken away, it leaves the nearest whole number
  return turns - ((turns + rounder) - rounder);
}

double cosineOf(double turns) {
  return math::cos(static_cast<float>(fullTurn * withinTurn(turns)));
}

/// 0, 1, 0 and -1 at the quarters of a turn, straight between them.
float zigzagOf(double turns) {
  const double x = withinTurn(turns);
  const double rise = 4.0 * std::abs(x);
  const double value = rise < 1.0 ? rise : 2.0 - rise;
  return static_cast<float>(x < 0.0 ? -value : value);
}

/// The unit vector along a, or `fallback` where the square of its length is `least` or less.
Vec3f unitAlong(Vec3f a, float least, Vec3f fallback) {
  const float size = lengthSquared(a);
  return size > least ? a * (1.0f / std::sqrt(size)) : fallback;
}

}  // namespace

FrequencyProfile::FrequencyProfile(const Ramp& ramp) {
  double sum = 0.0;
  for (std::size_t i = 0; i <= profilePieces; ++i) {
    const float share = static_cast<float>(i) / static_cast<float>(profilePieces);
    values_.push_back(std::max(0.0f, ramp.evaluate(share)));
    if (i > 0) sum += 0.5 * (values_[i - 1] + values_[i]) / profilePieces;
    sums_.push_back(sum);
  }
  if (std::all_of(values_.begin(), values_.end(), [&](double v) { return v == values_[0]; })) {
    values_.resize(1);
  }
}

double FrequencyProfile::integral(double share) const {
  if (isConstant()) return values_[0] * share;
  const double place = share * profilePieces;
  const std::size_t piece = std::min(static_cast<std::size_t>(place), profilePieces - 1);
  const double u = place - static_cast<double>(piece);
  const double rise = values_[piece + 1] - values_[piece];
  return sums_[piece] + u * (values_[piece] + 0.5 * u * rise) / profilePieces;
}

int curlPiecesPerTurn(double tolerance) {
  if (!(tolerance > 0.0)) return 0;
  // A chord over an angle of 2 a strays by 1 - cos a = 2 sin^2(a / 2).
  const double angle = 2.0 * math::asin(static_cast<float>(std::sqrt(0.5 * tolerance)));
  const double pieces = std::ceil(std::numbers::pi / angle - slack);
  return static_cast<int>(std::clamp(pieces, 3.0, 1e6));
}

bool canCurl(float length) {
  // Below that, directions are lost in what floats leave of squares.
  return length > 1e-15f && std::isfinite(length);
}

float curlRadiusScale(const CurlShape& shape, std::uint64_t key) {
  return 1.0f + shape.randomness * (2.0f * draw(key, radiusDraw) - 1.0f);
}

CurlTurns::CurlTurns(const CurlShape& shape, std::uint64_t key, float length) : shape_(&shape) {
  if (length > 0.0f) perArc_ = 1.0 / length;
  const double vary = 1.0 + shape.randomness * (2.0 * draw(key, frequencyDraw) - 1.0);
  turns_ = shape.frequency * vary * length;
  // Turned about, so that what is no number is cut off, too.
  if (!(std::abs(turns_) <= mostTurns)) turns_ = std::copysign(mostTurns, turns_);
  phase_ = shape.phase - std::floor(shape.phase) + shape.phaseRandom * draw(key, phaseDraw);
  even_ = shape.frequencyProfile.isConstant() && shape.spacingRandom == 0.0f;
  if (shape.spacingRandom == 0.0f) return;
  // From its tightest to its loosest a wave takes half a period: a turn to two and a half.
  for (std::uint64_t i = 0; i < 2; ++i) {
    waves_[i].period = 2.0 + static_cast<double>(i) +
                       (1.0 + static_cast<double>(i)) * draw(key, spacingDraw + 2 * i);
    waves_[i].start = draw(key, spacingDraw + 2 * i + 1);
  }
}

double CurlTurns::at(float arc) const {
  const double turns = turns_ * shape_->frequencyProfile.integral(std::min(arc * perArc_, 1.0));
  if (shape_->spacingRandom == 0.0f) return turns;
  // The integral of 1 + spacingRandom times the mean of two sine waves.
  double shift = 0.0;
  for (const Wave& wave : waves_) {
    shift += wave.period * (cosineOf(wave.start) - cosineOf(wave.start + turns / wave.period));
  }
  return turns + shape_->spacingRandom * 0.5 / fullTurn * shift;
}

void CurlFrames::transport(std::span<const Vec3f> segments, Vec3f hint) {
  // Segments without a length go the way of those before them, the first ones that of those after.
  Vec3f way{0.0f, 0.0f, 1.0f};
  for (std::size_t i = segments.size(); i-- > 0;) way = unitAlong(segments[i], FLT_MIN, way);
  ways_.resize(segments.size());
  for (std::size_t i = 0; i < segments.size(); ++i) {
    ways_[i] = way = unitAlong(segments[i], FLT_MIN, way);
  }
  // A strand that turns right back has no mean way at the turn: it keeps the way it came.
  tangents_.resize(segments.size() + 1);
  tangents_.front() = ways_.front();
  tangents_.back() = ways_.back();
  for (std::size_t i = 1; i < segments.size(); ++i) {
    tangents_[i] = unitAlong(ways_[i - 1] + ways_[i], 1e-6f, ways_[i - 1]);
  }

  const Vec3f start = tangents_[0], lead = normalize(hint);
  // What is left of a direction along the strand is rounding and points anywhere.
  Vec3f normal = unitAlong(lead - start * dot(lead, start), 1e-4f, anyPerpendicular(start));
  normals_.resize(tangents_.size());
  normals_[0] = normal;
  for (std::size_t i = 1; i < tangents_.size(); ++i) {
    const Vec3f from = tangents_[i - 1], to = tangents_[i];
    const float both = 1.0f + dot(from, to);
    if (both > 1e-4f) {
      normal -= (from + to) * (1.0f / both * dot(normal, to));
    } else {
      // The strand turns right back: the frame comes along.
      normal = unitAlong(normal - to * dot(normal, to), 1e-6f, anyPerpendicular(to));
    }
    normals_[i] = normal;
  }
  // What rounding has added up to by then is mended for each by itself, which does not hold up the
  // loop above: the length by a step of Newton's towards the inverse root of its square.
  for (std::size_t i = 1; i < tangents_.size(); ++i) {
    const Vec3f mended = normals_[i] - tangents_[i] * dot(normals_[i], tangents_[i]);
    normals_[i] = mended * (1.5f - 0.5f * lengthSquared(mended));
  }
}

CurlFrame CurlFrames::between(std::size_t segment, float share) const {
  if (!(share > 0.0f)) return at(segment);
  const Vec3f tangent = lerp(tangents_[segment], tangents_[segment + 1], share);
  const Vec3f normal =
      unitAlong(lerp(normals_[segment], normals_[segment + 1], share), 1e-6f, normals_[segment]);
  return {normal, unitAlong(cross(tangent, normal), 1e-6f, cross(tangents_[segment], normal))};
}

float CurlKernel::measure(std::span<const Vec3f> points) {
  points_ = points;
  placed_ = false;
  arcs_.resize(points.size());
  float arc = 0.0f;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (i > 0) arc += distance(points[i - 1], points[i]);
    arcs_[i] = arc;
  }
  length_ = canCurl(arc) ? arc : 0.0f;
  return length_;
}

void CurlKernel::turn(const CurlTurns& turns) {
  curl_ = turns;
  turns_.resize(arcs_.size());
  for (std::size_t i = 0; i < arcs_.size(); ++i) turns_[i] = curl_.at(arcs_[i]);
}

CurlKernel::Kinks CurlKernel::kinksWithin(std::size_t segment) const {
  // Kinks lie a quarter turn after every half.
  const double from = 2.0 * (curl_.phase() + turns_[segment]) - 0.5;
  const double to = 2.0 * (curl_.phase() + turns_[segment + 1]) - 0.5;
  return {std::floor(std::min(from, to) + slack) + 1.0,
          std::ceil(std::max(from, to) - slack) - 1.0};
}

double CurlKernel::extraPoints(std::size_t segment) const {
  if (curl_.shape().form == CurlShape::Form::zigzag) {
    const Kinks kinks = kinksWithin(segment);
    return std::max(0.0, kinks.last - kinks.first + 1.0);
  }
  const double turned = std::abs(turns_[segment + 1] - turns_[segment]);
  const double pieces = turned * curl_.shape().piecesPerTurn - slack;
  return pieces > 1.0 ? std::ceil(pieces) - 1.0 : 0.0;
}

std::size_t CurlKernel::neededPoints() {
  allExtra_ = 0.0;
  if (length_ == 0.0f || curl_.shape().piecesPerTurn == 0) return points_.size();
  extra_.resize(points_.size() - 1);
  for (std::size_t i = 0; i < extra_.size(); ++i) allExtra_ += extra_[i] = extraPoints(i);
  return points_.size() + static_cast<std::size_t>(std::min(allExtra_, room()));
}

double CurlKernel::room() const {
  return std::max(0.0, curl_.shape().maxSegments - static_cast<double>(points_.size() - 1));
}

void CurlKernel::place(std::size_t segment, float share, float arc, double turns) {
  segments_.push_back(static_cast<std::uint32_t>(segment));
  shares_.push_back(share);
  placedArcs_.push_back(arc);
  placedTurns_.push_back(turns);
}

void CurlKernel::addPoints() {
  neededPoints();
  placed_ = true;
  segments_.clear();
  shares_.clear();
  placedArcs_.clear();
  placedTurns_.clear();
  const double most = allExtra_ > 0.0 ? room() : 0.0;
  double seen = 0.0;
  std::size_t added = 0;
  for (std::size_t i = 0; i < points_.size(); ++i) {
    place(i, 0.0f, arcs_[i], length_ > 0.0f ? turns_[i] : 0.0);
    if (allExtra_ == 0.0 || i + 1 == points_.size()) continue;
    seen += extra_[i];
    // Thinned in step with what was asked for; all of it comes to exactly what there is room for.
    const double kept = allExtra_ <= most  ? seen
                        : seen < allExtra_ ? std::floor(seen / allExtra_ * most)
                                           : most;
    addPointsWithin(i, static_cast<std::size_t>(kept) - added);
    added = static_cast<std::size_t>(kept);
  }
}

void CurlKernel::addPointsWithin(std::size_t segment, std::size_t count) {
  if (count == 0) return;
  const double from = turns_[segment], to = turns_[segment + 1];
  const bool zigzag = curl_.shape().form == CurlShape::Form::zigzag;
  const Kinks kinks = zigzag ? kinksWithin(segment) : Kinks{};
  for (std::size_t k = 0; k < count; ++k) {
    const double way = static_cast<double>(k + 1) / static_cast<double>(count + 1);
    double wanted = from + (to - from) * way;
    if (zigzag) {
      const double number = std::floor(way * extra_[segment]);
      wanted =
          0.5 * ((to > from ? kinks.first + number : kinks.last - number) + 0.5) - curl_.phase();
    }
    const double share = shareAt(segment, wanted);
    const float arc =
        arcs_[segment] + static_cast<float>(share) * (arcs_[segment + 1] - arcs_[segment]);
    place(segment, static_cast<float>(share), arc, wanted);
  }
}

double CurlKernel::shareAt(std::size_t segment, double wanted) const {
  const double start = arcs_[segment], size = arcs_[segment + 1] - start;
  double low = 0.0, high = 1.0;
  double lowOff = turns_[segment] - wanted, highOff = turns_[segment + 1] - wanted;
  double share = lowOff / (lowOff - highOff);
  if (curl_.isEven()) return std::clamp(share, 0.0, 1.0);
  // False position; an end that stays twice loses half its weight (Dowell and Jarratt 1971).
  int stayed = 0;
  for (int step = 0; step < 24; ++step) {
    share = low + (high - low) * std::clamp(lowOff / (lowOff - highOff), 0.0, 1.0);
    const double off = curl_.at(static_cast<float>(start + share * size)) - wanted;
    if (std::abs(off) < 1e-5) break;
    if ((off < 0.0) == (lowOff < 0.0)) {
      low = share;
      lowOff = off;
      if (stayed == 1) highOff *= 0.5;
      stayed = 1;
    } else {
      high = share;
      highOff = off;
      if (stayed == -1) lowOff *= 0.5;
      stayed = -1;
    }
  }
  return share;
}

void CurlKernel::follow(Vec3f hint) {
  if (length_ == 0.0f) return;
  steps_.resize(points_.size() - 1);
  for (std::size_t i = 0; i < steps_.size(); ++i) steps_[i] = points_[i + 1] - points_[i];
  frames_.transport(steps_, hint);
  directions_.resize(placed_ ? segments_.size() : points_.size());
  for (std::size_t i = 0; i < directions_.size(); ++i) {
    directions_[i] = placed_ ? frames_.between(segments_[i], shares_[i]) : frames_.at(i);
  }
}

void CurlKernel::follow(const CurlAxis& axis) {
  const std::vector<float>& arcs = placed_ ? placedArcs_ : arcs_;
  const float perArc = static_cast<float>(CurlAxis::segments) / axis.length;
  directions_.resize(arcs.size());
  for (std::size_t i = 0; i < arcs.size(); ++i) {
    const float place = std::min(arcs[i] * perArc, static_cast<float>(CurlAxis::segments));
    const std::size_t segment = std::min(static_cast<std::size_t>(place), CurlAxis::segments - 1);
    directions_[i] = axis.frames.between(segment, place - static_cast<float>(segment));
  }
}

void CurlKernel::displace(std::span<const Vec3f> points, std::span<const float> radii, float scale,
                          std::span<Vec3f> out) {
  const std::size_t count = points.size();
  if (length_ == 0.0f) {
    if (out.data() != points.data()) std::copy(points.begin(), points.end(), out.begin());
    return;
  }
  const std::vector<float>& arcs = placed_ ? placedArcs_ : arcs_;
  const std::vector<double>& turns = placed_ ? placedTurns_ : turns_;
  across_.resize(count);
  up_.assign(count, 0.0f);
  if (curl_.shape().form == CurlShape::Form::zigzag) {
    for (std::size_t i = 0; i < count; ++i) across_[i] = zigzagOf(curl_.phase() + turns[i]);
  } else {
    angles_.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
      angles_[i] = static_cast<float>(fullTurn * withinTurn(curl_.phase() + turns[i]));
    }
    const bool helix = curl_.shape().form == CurlShape::Form::helix;
    std::vector<float>& sines = helix ? up_ : across_;
    for (std::size_t i = 0; i < count; ++i) sines[i] = math::Sin::fast(angles_[i]);
    if (helix) {
      for (std::size_t i = 0; i < count; ++i) across_[i] = math::Cos::fast(angles_[i]);
    }
  }
  const float perLength = 1.0f / length_;
  for (std::size_t i = 0; i < count; ++i) {
    const float begun = std::min(4.0f * static_cast<float>(std::abs(turns[i])), 1.0f);
    const float ease = begun * begun * (3.0f - 2.0f * begun);
    const float radius =
        radii[i] * scale * ease * curl_.shape().profile.evaluate(arcs[i] * perLength);
    const float size = std::abs(radius);
    const Vec3f point = points[i];
    const CurlFrame& frame = directions_[i];
    out[i] = size > 0.0f && size < 1e30f
                 ? point + (frame.normal * across_[i] + frame.binormal * up_[i]) * radius
                 : point;
  }
}

}  // namespace kestrane
