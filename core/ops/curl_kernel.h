// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/base/vec.h"
#include "core/values/ramp.h"

namespace kestrane {

/// A frequency's profile along the length, as a thousand straight pieces, with its integral from
/// the root. Values below 0 count as 0, so that turns never run back.
class FrequencyProfile {
 public:
  explicit FrequencyProfile(const Ramp& ramp);

  /// The integral from the root to a share of the length, 0 to 1.
  double integral(double share) const;
  /// Whether the integral is a straight line.
  bool isConstant() const { return values_.size() < 2; }

 private:
  std::vector<double> values_;  // at the pieces' ends; one alone where they are all the same
  std::vector<double> sums_;    // the integral up to there
};

/// How strands curl: what is the same for all of them.
struct CurlShape {
  enum class Form { helix, wave, zigzag };
  Form form = Form::helix;
  double frequency = 0.4;  // turns per unit of length; below 0 they run the other way round
  FrequencyProfile frequencyProfile{Ramp()};
  Ramp profile;                // of the radius, along the length
  float randomness = 0.0f;     // how far radius and frequency vary from strand to strand, 0 to 1
  float spacingRandom = 0.0f;  // how far the frequency varies along a strand, 0 to 1
  double phase = 0.0;          // where in a turn strands start, in turns
  float phaseRandom = 1.0f;    // and how much of a turn that varies
  int piecesPerTurn = 0;       // the fewest segments a turn is drawn with; 0: as many as there are
  int maxSegments = 256;       // the most segments of a strand that points are added to
};

/// The fewest straight segments a turn whose chords stray from the circle by no more than this
/// share of its radius, at least 3; 0 for a tolerance of 0.
int curlPiecesPerTurn(double tolerance);

/// Whether a strand of this length has a direction to curl about.
bool canCurl(float length);

/// The turns of one curl, drawn by a key: of its strand or, for strands that curl together, of
/// their clump. Points to the shape.
class CurlTurns {
 public:
  CurlTurns() = default;
  CurlTurns(const CurlShape& shape, std::uint64_t key, float length);

  /// Turns from the root to a place on the length; beyond its end as at its end.
  double at(float arc) const;
  /// Where in a turn the root is, in turns.
  double phase() const { return phase_; }
  const CurlShape& shape() const { return *shape_; }
  /// Whether turns are evenly spaced.
  bool isEven() const { return even_; }

 private:
  const CurlShape* shape_ = nullptr;
  double perArc_ = 0.0;  // share of the length per unit of it
  double turns_ = 0.0;   // over the whole length, were the profile 1 and the spacing even
  double phase_ = 0.0;
  bool even_ = true;
  // The spacing varies as two waves do, of periods counted in turns.
  struct Wave {
    double period, start;
  };
  Wave waves_[2] = {};
};

/// Where a curl's offsets point: unit vectors, perpendicular to each other and to the curve.
struct CurlFrame {
  Vec3f normal;
  Vec3f binormal;
};

/// Directions along a curve, carried from its root without a turn of their own: each point's normal
/// is the one before, rotated as the tangent is. Reused between curves.
class CurlFrames {
 public:
  /// Of a curve given by the vectors of its segments (not empty), whose lengths may be 0. The
  /// first normal is the part of `hint` that is perpendicular to the first tangent, or any that is
  /// where there is no such part.
  void transport(std::span<const Vec3f> segments, Vec3f hint);
  /// Within a segment, at a share of it.
  CurlFrame between(std::size_t segment, float share) const;
  CurlFrame at(std::size_t point) const {
    return {normals_[point], cross(tangents_[point], normals_[point])};
  }

 private:
  std::vector<Vec3f> ways_;                // of the segments
  std::vector<Vec3f> tangents_, normals_;  // per point
};

/// The middle of strands that curl as one: its frames at places evenly spaced along it.
struct CurlAxis {
  static constexpr std::size_t segments = 31;

  float length = 0.0f;  // of the longest of the strands
  CurlFrames frames;
};

/// Curls strand after strand: for each of them measure, turn, addPoints (or not), one form of
/// follow, displace. Holds buffers, so each thread has its own.
class CurlKernel {
 public:
  /// Takes a strand in and gives its length, or 0 where it cannot curl, which leaves it as it is.
  /// The points must stay until displace.
  float measure(std::span<const Vec3f> points);
  /// Finds the turns at its points. The turns' shape must stay until displace.
  void turn(const CurlTurns& turns);
  /// How many points the strand has with those that the curl needs: its own, and between two of
  /// them as many as keep to piecesPerTurn, or a zigzag's kinks. With more than maxSegments they
  /// are thinned evenly.
  std::size_t neededPoints();
  /// Goes on with that many points.
  void addPoints();
  /// Values at the strand's own points, and linearly between them at added ones.
  template <class T>
  void apply(std::span<const T> values, std::span<T> out) const {
    for (std::size_t k = 0; k < segments_.size(); ++k) {
      const std::uint32_t segment = segments_[k];
      out[k] = shares_[k] <= 0.0f ? values[segment]
                                  : lerp(values[segment], values[segment + 1], shares_[k]);
    }
  }

  /// Frames of the strand itself, from a direction at its root.
  void follow(Vec3f hint);
  /// Frames of the clump that it curls with.
  void follow(const CurlAxis& axis);

  /// Moves the points (the strand's own, or those of apply) by radii given per point, times
  /// `scale`. A point whose radius is 0 or not finite stays to the bit. In and out may be the same.
  void displace(std::span<const Vec3f> points, std::span<const float> radii, float scale,
                std::span<Vec3f> out);

 private:
  /// How many points may be added.
  double room() const;
  struct Kinks {
    double first, last;  // numbers; none where the last is lower
  };
  Kinks kinksWithin(std::size_t segment) const;
  double extraPoints(std::size_t segment) const;
  void addPointsWithin(std::size_t segment, std::size_t count);
  void place(std::size_t segment, float share, float arc, double turns);
  double shareAt(std::size_t segment, double wanted) const;

  CurlTurns curl_;
  std::span<const Vec3f> points_;
  float length_ = 0.0f;
  std::vector<float> arcs_;    // from the root, at the strand's own points
  std::vector<double> turns_;  // there
  std::vector<double> extra_;  // per segment, the points that are to be added in it
  double allExtra_ = 0.0;
  bool placed_ = false;
  std::vector<std::uint32_t> segments_;  // where points lie, once points are added
  std::vector<float> shares_;
  std::vector<float> placedArcs_;
  std::vector<double> placedTurns_;
  std::vector<Vec3f> steps_;
  CurlFrames frames_;
  std::vector<CurlFrame> directions_;  // per point of the result
  std::vector<float> angles_;
  std::vector<float> across_, up_;  // shares of the radius, along normal and binormal
};

/// The factor of one strand's radius.
float curlRadiusScale(const CurlShape& shape, std::uint64_t key);

}  // namespace kestrane
