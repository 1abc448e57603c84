// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/json.h"
#include "core/session/groom_scan.h"

namespace kestrane {

/// Reads the values of a groom file, wherever they lie: in the parsed tree, or in what was cut out
/// of the text before. Every complaint is a GroomFileError.
class GroomValues {
 public:
  /// `cuts`, where given, are those of the text that the tree is the rest of.
  explicit GroomValues(const GroomCuts* cuts = nullptr);

  // Each names the value `key` in its complaint.
  std::string string(const std::string& key, const Json& value) const;
  bool boolean(const std::string& key, const Json& value) const;
  double number(const std::string& key, const Json& value) const;
  std::int64_t integer(const std::string& key, const Json& value, std::int64_t low,
                       std::int64_t high) const;
  const Json& object(const std::string& key, const Json& value) const;
  const Json& array(const std::string& key, const Json& value) const;

  /// A flat array of numbers as packed floats: Vec3f takes three of them.
  template <class Tuple>
  std::vector<Tuple> tuples(const std::string& key, const Json& value) {
    constexpr std::size_t width = sizeof(Tuple) / sizeof(float);
    std::vector<Tuple> result;
    floats(key, value, width, [&](std::size_t count) {
      result.resize(count / width);
      return reinterpret_cast<float*>(result.data());
    });
    return result;
  }
  /// An array of whole numbers in rows of `Row`, which is packed 32-bit integers. The complaint is
  /// `failure` alone.
  template <class Row>
  std::vector<Row> rows(const Json& value, const std::string& failure) {
    constexpr std::size_t width = sizeof(Row) / sizeof(std::int32_t);
    std::vector<Row> result;
    integers(value, width, failure, [&](std::size_t count) {
      result.resize(count / width);
      return reinterpret_cast<std::int32_t*>(result.data());
    });
    return result;
  }

  /// The text of a document within the file: of an object, or a string that holds it. Lies in the
  /// file's text or in `room`.
  std::string_view document(const Json& value, std::string& room);
  /// A value with all cuts put back in their places.
  Json whole(const Json& value);

  /// Throws unless the cuts that nobody asked for are JSON, too.
  void checkUnread() const;

 private:
  const std::string_view* cutOf(const Json& value);
  void floats(const std::string& key, const Json& value, std::size_t width,
              const std::function<float*(std::size_t)>& room);
  void integers(const Json& value, std::size_t width, const std::string& failure,
                const std::function<std::int32_t*(std::size_t)>& room);

  const GroomCuts* cuts_;
  std::vector<char> read_;  // per cut
};

}  // namespace kestrane
