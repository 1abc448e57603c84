// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/ops/strand_lifter.h"

namespace kestrane {

namespace {

// A lifted point comes down again when its segment gets its length back; a few rounds settle it.
constexpr int liftRounds = 3;
// The share of its height that a strand may lack: between guides that hang free a blend always lies
// a little lower, as a chord does, and nobody sees skin come nearer there.
constexpr float freeShare = 0.02f;

/// One point of each of four strands.
Vec3x4 pointOf(Vec3f* const (&strands)[4], std::size_t k) {
  const Vec3f a = strands[0][k], b = strands[1][k], c = strands[2][k], d = strands[3][k];
  return {Float4{a.x, b.x, c.x, d.x}, Float4{a.y, b.y, c.y, d.y}, Float4{a.z, b.z, c.z, d.z}};
}

}  // namespace

void StrandLifter::add(std::size_t strand, std::span<Vec3f> points) {
  strands_[waiting_] = strand;
  points_[waiting_] = points.data();
  if (++waiting_ == mostWaiting) lift();
}

void StrandLifter::finish() {
  if (waiting_ > 0) lift();
}

void StrandLifter::lift() {
  static_assert(mostWaiting == 4);
  wanted_.assign(mostWaiting * count_, 0.0f);
  Mask4 used = splatInt(0);
  for (std::size_t lane = 0; lane < mostWaiting; ++lane) {
    if (lane >= waiting_) {
      // Idle lanes read the first strand, and nothing is written for them.
      points_[lane] = points_[0];
      continue;
    }
    used[lane] = -1;
    blendHeights(strands_[lane], wanted_.data() + lane * count_);
  }
  ClearanceField::Samples samples;
  Mask4 lifted = splatInt(0);
  Vec3x4 before = pointOf(points_, 0);  // the last points as they came
  Vec3x4 last = before;                 // and as they are
  for (std::size_t k = 1; k < count_; ++k) {
    const Vec3x4 aim = pointOf(points_, k);
    const Float4 segment = length(before - aim);
    before = aim;
    // From the first lift on a strand is walked: each segment keeps its length and heads for where
    // its end was.
    Vec3x4 place = select(lifted, last + segment * normalize(aim - last), aim);
    const float* const row = wanted_.data() + k;
    const Float4 wanted{row[0], row[count_], row[2 * count_], row[3 * count_]};
    Mask4 asked = used;
    for (int round = 0; round < liftRounds && setLanes(asked) != 0; ++round) {
      const Mask4 found = field_->find(place, asked, samples);
      const Float4 sunk = wanted - samples.height;
      const Float4 free = samples.tolerance + splat(freeShare) * wanted;
      const Mask4 low = found & (sunk > free);
      if (setLanes(low) == 0) break;
      const Vec3x4 up = normalize(samples.slope);
      const Vec3x4 raised = last + segment * normalize(place + sunk * up - last);
      // Coming back to its segment's length costs height. Within a cell, over which heights are all
      // but linear, what is left needs no other look.
      const Vec3x4 way = raised - place;
      const Float4 reach = splat(0.5f) * samples.cell;
      const Mask4 enough = (dot(way, way) < reach * reach) & (sunk - dot(way, up) < free);
      place = select(low, raised, place);
      lifted = lifted | low;
      asked = low & ~enough;
    }
    last = place;
    for (unsigned lanes = setLanes(lifted), lane = 0; lanes != 0; lanes >>= 1, ++lane) {
      if (lanes & 1) points_[lane][k] = {place.x[lane], place.y[lane], place.z[lane]};
    }
  }
  waiting_ = 0;
}

void StrandLifter::blendHeights(std::size_t strand, float* out) const {
  for (std::size_t e = binding_.begin(strand); e < binding_.end(strand); ++e) {
    const float weight = binding_.weight(e);
    const float* const heights = heights_.data() + binding_.guide(e) * count_;
    for (std::size_t k = 0; k < count_; ++k) out[k] += weight * heights[k];
  }
}

}  // namespace kestrane
