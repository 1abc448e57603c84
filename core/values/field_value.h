// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "core/data/scalp_mesh.h"
#include "core/data/strand_set.h"

namespace kestrane {

struct EvalContext;

/// Where a field is asked for its value: a strand of a set, or one of its points.
struct FieldSample {
  const StrandSet* strands = nullptr;
  const ScalpMesh* scalp = nullptr;  // null: no surface at hand
  std::size_t strand = 0;
  std::size_t point = 0;  // index into the set's points: the strand's first where not per point,
                          // and past its points for a strand that has none
};

/// A lazy value per strand or per point, as it travels on a Field wire. Immutable once shared;
/// valueAt may be called from many threads.
class FieldValue {
 public:
  virtual ~FieldValue() = default;
  virtual float valueAt(const FieldSample& sample) const = 0;
  /// The value if it does not vary.
  virtual std::optional<float> constant() const { return std::nullopt; }
  /// Whether the value at a strand depends on the strands (their points, channels, number), not
  /// only on where the strand is rooted. The change of one may then change the value at others.
  virtual bool dependsOnStrand() const { return true; }
  /// A hash of what it reads from the context.
  virtual std::uint64_t contextKey(const EvalContext&) const { return 0; }
  /// An optional step before a run, outside parallel loops.
  virtual void prepare(const EvalContext&) const {}
  virtual std::uint64_t cacheKey() const { return 0; }
  virtual bool isTimeVarying() const { return false; }
  virtual bool isConstant() const { return constant().has_value(); }
  /// Whether it varies along a strand.
  virtual bool usesPoints() const { return false; }
};

using FieldValuePtr = std::shared_ptr<const FieldValue>;

}  // namespace kestrane
