// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/obj/obj_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "core/base/file.h"

namespace kestrane {

namespace {

/// A positive index may name what stands further down, so the largest one is checked at the end.
struct LargestIndex {
  std::int64_t index = 0;
  std::size_t line = 0;
};

class ObjParser {
 public:
  ObjParser(std::string_view text, std::string name)
      : at_(text.data()), end_(text.data() + text.size()) {
    obj_.name = std::move(name);
  }

  ObjFile parse() {
    if (std::memchr(at_, 0, static_cast<std::size_t>(end_ - at_)) != nullptr) {
      throw ObjError(obj_.name + ": this is a binary file, not OBJ text");
    }
    if (std::string_view(at_, end_).starts_with("\xEF\xBB\xBF")) at_ += 3;
    while (at_ < end_) statement();
    checkLargest(largestPoint_, obj_.points.size(), "point");
    checkLargest(largestUv_, obj_.uvs.size(), "UV");
    if (!anyUv_) obj_.cornerUvs.clear();
    return std::move(obj_);
  }

 private:
  [[noreturn]] void fail(const std::string& what, std::size_t line = 0) const {
    throw ObjError(obj_.name + ", line " + std::to_string(line != 0 ? line : line_) + ": " + what);
  }

  static bool endsLine(char c) { return c == '\n' || c == '\r'; }

  /// Passes over blanks and continued line ends; true at something to read on this line.
  bool more() {
    while (at_ < end_) {
      if (*at_ == ' ' || *at_ == '\t' || *at_ == '\v' || *at_ == '\f') {
        ++at_;
      } else if (*at_ == '\\' && at_ + 1 < end_ && endsLine(at_[1])) {
        ++at_;
        lineEnd();
      } else {
        return !endsLine(*at_) && *at_ != '#';
      }
    }
    return false;
  }

  /// Steps past one line end of any kind.
  void lineEnd() {
    if (*at_ == '\r' && at_ + 1 < end_ && at_[1] == '\n') ++at_;
    ++at_;
    ++line_;
  }

  void skipLine() {
    while (at_ < end_ && !endsLine(*at_)) {
      // A comment that ends in a backslash, as a path may, does not swallow the next line.
      if (*at_ == '#') {
        while (at_ < end_ && !endsLine(*at_)) ++at_;
        break;
      }
      if (*at_ == '\\' && at_ + 1 < end_ && endsLine(at_[1])) {
        ++at_;
        lineEnd();
      } else {
        ++at_;
      }
    }
    if (at_ < end_) lineEnd();
  }

  std::string_view word() {
    const char* const start = at_;
    while (at_<end_&& static_cast<unsigned char>(*at_)> ' ' && *at_ != '#' &&
           !(*at_ == '\\' && at_ + 1 < end_ && endsLine(at_[1]))) {
      ++at_;
    }
    return {start, static_cast<std::size_t>(at_ - start)};
  }

  /// A word for a message, cut short and free of control characters.
  static std::string shown(std::string_view text) {
    std::string result(text.substr(0, 24));
    for (char& c : result) {
      if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = '?';
    }
    return "'" + result + (text.size() > 24 ? "..." : "") + "'";
  }

  void statement() {
    if (!more()) return skipLine();
    const std::string_view key = word();
    if (key == "v") {
      point();
    } else if (key == "f") {
      face();
    } else if (key == "vt") {
      uv();
    } else if (key == "l") {
      polyline();
    }
    skipLine();
  }

  /// Tells a number that is too small to hold from one that is too large, both of which the library
  /// calls out of range.
  static bool isBelowOne(std::string_view number) {
    const std::size_t power = std::min(number.find_first_of("eE"), number.size());
    const std::string_view digits = number.substr(0, power);
    const std::size_t point = std::min(digits.find('.'), digits.size());
    const std::size_t leading = std::min(digits.find_first_of("123456789"), digits.size());
    std::string_view text = number.substr(std::min(power + 1, number.size()));
    if (text.starts_with('+')) text.remove_prefix(1);
    std::int64_t exponent = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), exponent);
    if (read.ec == std::errc::result_out_of_range) return text.starts_with('-');
    return exponent + static_cast<std::int64_t>(point) <= static_cast<std::int64_t>(leading);
  }

  float number(const char* of) {
    const std::string_view text = word();
    // A number's own reader takes no plus sign.
    const char* const first = text.data() + (text.starts_with('+') ? 1 : 0);
    const char* const last = text.data() + text.size();
    float value = 0.0f;
    const auto [stop, error] = std::from_chars(first, last, value);
    if (error == std::errc::result_out_of_range && stop == last) {
      if (!isBelowOne({first, last})) fail(shown(text) + " is too large for " + of);
      return *first == '-' ? -0.0f : 0.0f;
    }
    if (error != std::errc() || stop != last) fail(shown(text) + " is no number");
    if (!std::isfinite(value)) fail(std::string(of) + " must be finite, not " + shown(text));
    return value;
  }

  void point() {
    float values[3];
    for (float& value : values) {
      if (!more()) fail("a point needs three coordinates");
      value = number("a coordinate");
    }
    obj_.points.push_back({values[0], values[1], values[2]});
    checkCount(obj_.points.size(), "points");
  }

  void uv() {
    if (!more()) fail("a UV needs a number");
    Vec2f value;
    value.x = number("a UV");
    if (more()) value.y = number("a UV");
    obj_.uvs.push_back(value);
    checkCount(obj_.uvs.size(), "UVs");
  }

  void checkCount(std::size_t count, const char* what) {
    if (count > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
      fail(std::string("more ") + what + " than the program can number");
    }
  }

  /// One index of a corner, ending at a slash or the word's end. Negative ones count back from what
  /// has been read so far.
  std::int32_t index(const char*& at, const char* last, std::size_t count, const char* of,
                     LargestIndex& largest, std::string_view whole) {
    std::int64_t value = 0;
    const auto [stop, error] = std::from_chars(at, last, value);
    const bool huge = error == std::errc::result_out_of_range;
    if ((error != std::errc() && !huge) || (stop != last && *stop != '/')) {
      fail(shown(whole) + " is no index");
    }
    if (huge)
      value = *at == '-' ? -std::numeric_limits<std::int64_t>::max()
                         : std::numeric_limits<std::int64_t>::max();
    at = stop;
    if (value == 0) fail(std::string("a ") + of + " has the index 0; they count from 1");
    if (value < 0) {
      if (-(value + 1) >= static_cast<std::int64_t>(count)) {
        fail("there is no " + std::string(of) + " " + std::to_string(value) + "; " +
             std::to_string(count) + " stand above");
      }
      return static_cast<std::int32_t>(static_cast<std::int64_t>(count) + value);
    }
    if (value > largest.index) largest = {value, line_};
    return static_cast<std::int32_t>(
        std::min<std::int64_t>(value - 1, std::numeric_limits<std::int32_t>::max()));
  }

  void checkLargest(const LargestIndex& largest, std::size_t count, const char* of) const {
    if (largest.index > static_cast<std::int64_t>(count)) {
      fail("there is no " + std::string(of) + " " + std::to_string(largest.index) +
               "; the file has " + std::to_string(count),
           largest.line);
    }
  }

  void face() {
    const std::size_t first = obj_.corners.size();
    while (more()) {
      const std::string_view text = word();
      const char* at = text.data();
      const char* const last = at + text.size();
      obj_.corners.push_back(index(at, last, obj_.points.size(), "point", largestPoint_, text));
      std::int32_t cornerUv = -1;
      if (at < last && ++at < last && *at != '/') {
        cornerUv = index(at, last, obj_.uvs.size(), "UV", largestUv_, text);
        anyUv_ = true;
      }
      obj_.cornerUvs.push_back(cornerUv);
    }
    if (obj_.corners.size() - first < 3) fail("a face needs three corners or more");
    obj_.faceStarts.push_back(obj_.corners.size());
    checkCount(obj_.corners.size(), "corners");
  }

  void polyline() {
    const std::size_t first = obj_.linePoints.size();
    while (more()) {
      const std::string_view text = word();
      const char* at = text.data();
      obj_.linePoints.push_back(
          index(at, at + text.size(), obj_.points.size(), "point", largestPoint_, text));
    }
    if (obj_.linePoints.size() - first < 2) fail("a line needs two points or more");
    obj_.lineStarts.push_back(obj_.linePoints.size());
  }

  ObjFile obj_;
  const char* at_;
  const char* end_;
  std::size_t line_ = 1;
  LargestIndex largestPoint_;
  LargestIndex largestUv_;
  bool anyUv_ = false;
};

}  // namespace

ObjFile parseObj(std::string_view text, std::string name) {
  return ObjParser(text, std::move(name)).parse();
}

ObjFile readObj(const std::string& path) {
  std::string text;
  try {
    text = readWholeFile(path);
  } catch (const std::runtime_error& error) {
    throw ObjError(error.what());
  }
  return parseObj(text, path);
}

std::size_t cornersWithoutUv(const ObjFile& obj) {
  return static_cast<std::size_t>(std::count(obj.cornerUvs.begin(), obj.cornerUvs.end(), -1));
}

ScalpMeshPtr scalpFromObj(const ObjFile& obj) {
  if (obj.faceCount() == 0) throw ObjError(obj.name + " holds no faces (f), so there is no mesh");
  std::vector<std::int32_t> polygons(obj.faceCount());
  std::vector<ScalpMesh::Triangle> triangles;
  std::vector<Vec2f> uvs;
  triangles.reserve(obj.corners.size() - 2 * obj.faceCount());
  if (!obj.cornerUvs.empty()) uvs.reserve(3 * triangles.capacity());
  for (std::size_t face = 0; face < obj.faceCount(); ++face) {
    const std::uint64_t first = obj.faceStarts[face], end = obj.faceStarts[face + 1];
    polygons[face] = static_cast<std::int32_t>(end - first - 2);
    for (std::uint64_t corner = first + 1; corner + 1 < end; ++corner) {
      triangles.push_back({obj.corners[first], obj.corners[corner], obj.corners[corner + 1]});
      if (obj.cornerUvs.empty()) continue;
      for (const std::uint64_t c : {first, corner, corner + 1}) {
        const std::int32_t uv = obj.cornerUvs[c];
        uvs.push_back(uv < 0 ? Vec2f{} : obj.uvs[static_cast<std::size_t>(uv)]);
      }
    }
  }
  auto mesh = std::make_shared<ScalpMesh>(obj.points, std::move(triangles));
  mesh->setPolygons(std::move(polygons));
  if (!uvs.empty()) mesh->setUvs(std::move(uvs));
  return mesh;
}

std::vector<std::vector<Vec3f>> curvesFromObj(const ObjFile& obj) {
  if (obj.lineCount() == 0)
    throw ObjError(obj.name + " holds no lines (l), so there are no curves");
  std::vector<std::vector<Vec3f>> curves(obj.lineCount());
  for (std::size_t line = 0; line < curves.size(); ++line) {
    for (std::uint64_t i = obj.lineStarts[line]; i < obj.lineStarts[line + 1]; ++i) {
      curves[line].push_back(obj.points[static_cast<std::size_t>(obj.linePoints[i])]);
    }
  }
  return curves;
}

}  // namespace kestrane
