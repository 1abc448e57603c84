// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/graph/operator.h"

namespace kestrane {

/// What stands behind a field that varies.
template <class T>
struct FieldSource {
  virtual ~FieldSource() = default;
  /// One value per point of the strand where perPoint, else one value.
  virtual void values(std::size_t strand, std::span<T> out) const = 0;
  /// The values of the strands from `first` on, up to `last`: one of each, or where perPoint one at
  /// each of their points, strand after strand. Asked only of sources that set readsAhead.
  virtual void severalValues(std::size_t first, std::size_t last, std::span<T> out) const;
  bool perPoint = false;
  bool wholeSet = false;
  /// The strands that it is of, where many at once come cheaper than one after another.
  const StrandSet* readsAhead = nullptr;
};

template <class T>
void FieldSource<T>::severalValues(std::size_t first, std::size_t last, std::span<T> out) const {
  for (std::size_t strand = first; strand < last; ++strand) {
    const std::size_t count = perPoint ? readsAhead->strandPoints(strand).size() : 1;
    if (count > 0) values(strand, out.first(count));
    out = out.subspan(count);
  }
}

/// One parameter, resolved for one evaluation: a number per strand or per point, wherever it comes
/// from (a wire, then a map, then the plain value). Built before a parallel loop and read from all
/// threads through FieldReaders; immutable.
class ScalarField {
 public:
  ScalarField() = default;
  explicit ScalarField(float constant) : constant_(constant) {}

  bool isConstant() const { return source_ == nullptr; }
  /// The value of a constant field.
  float constant() const { return constant_; }
  /// Whether it varies along a strand.
  bool perPoint() const { return source_ != nullptr && source_->perPoint; }
  /// Whether a strand's value depends on other strands too (an expression of `longest` or
  /// `index`), so that a change of one may change all.
  bool readsWholeSet() const { return source_ != nullptr && source_->wholeSet; }
  /// The value at one of a strand's points, the root unless told. Loops use a FieldReader, which
  /// reads all points of a strand at once.
  float sample(std::size_t strand, std::size_t point = 0) const;

  using Source = FieldSource<float>;
  explicit ScalarField(std::shared_ptr<const Source> source) : source_(std::move(source)) {}
  const Source* source() const { return source_.get(); }

 private:
  float constant_ = 0.0f;
  std::shared_ptr<const Source> source_;
};

/// Reads a field inside one chunk of a parallel loop, through buffers of its own. Who asks for one
/// strand after another gets values that were worked out many strands at a time; the values are
/// those of each strand alone.
class FieldReader {
 public:
  explicit FieldReader(const ScalarField& field) : field_(field) {}

  /// The strand's one value; a field that varies along the strand is read at its root.
  float strand(std::size_t strand);
  /// The value at each of the strand's `count` points. Good until the next call.
  const float* points(std::size_t strand, std::size_t count);

 private:
  /// The values of a strand, among those read ahead.
  const float* ahead(std::size_t strand);

  const ScalarField& field_;
  std::vector<float> buffer_;
  // Values of the strands from first_ on, up to last_, read in one step of stepSize_ or less.
  std::vector<float> ahead_;
  std::size_t first_ = 0, last_ = 0;
  std::size_t asked_ = 0;
  std::size_t stepSize_ = 1;
};

/// Where a field is to be read: strands, the surface that they are rooted on, and the guides to
/// read layers from where there are no strands yet.
struct FieldTarget {
  const StrandSet* strands = nullptr;
  ScalpMeshPtr surface;
  GuideSetPtr guides;
  bool rootsOnly = false;  // the strands are only roots as yet: layers come from the guides
};

/// Binds one parameter of an operator. Throws GraphError with a sentence that begins with
/// "param 'NAME': " where a map does not fit.
ScalarField bindParam(const Operator& op, std::string_view name, const EvalContext& context,
                      const FieldTarget& target);

/// A value per strand or point of a vec3 parameter, which may be an expression.
class VectorField {
 public:
  explicit VectorField(Vec3f constant) : constant_(constant) {}
  using Source = FieldSource<Vec3f>;
  explicit VectorField(std::shared_ptr<const Source> source) : source_(std::move(source)) {}
  bool isConstant() const { return source_ == nullptr; }
  Vec3f constant() const { return constant_; }
  const Source* source() const { return source_.get(); }

 private:
  Vec3f constant_;
  std::shared_ptr<const Source> source_;
};
VectorField resolveVector(const Operator& op, std::string_view name, const EvalContext& context,
                          const FieldTarget& target);

/// A hash of what the parameters' maps and expressions read from the context (time, files, painted
/// maps), so that a node runs again when they change.
std::uint64_t paramsContextKey(const ParamSet& params, const EvalContext& context);
/// Whether any parameter reads the time.
bool paramsReadTime(const ParamSet& params);

}  // namespace kestrane
