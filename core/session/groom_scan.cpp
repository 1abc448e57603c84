// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/groom_scan.h"

#include <charconv>

#include "core/base/json.h"

namespace kestrane {

namespace {

// A character that Unicode keeps for a program's internal use. A text that holds one itself, plain
// or escaped, is not cut, so that a string which begins with it always names a cut.
constexpr std::string_view marker = "\xEF\xB7\x90";
constexpr std::size_t worthCutting = 64;
constexpr int deepestCut = 64;

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  std::optional<GroomCuts> run() {
    while (at_ < text_.size()) {
      const char c = text_[at_];
      bool good = true;
      if (c == '"') {
        good = passString();
      } else if (c == '[') {
        good = passArrayOrEnter();
      } else {
        if (c == '{') ++depth_;
        if (c == ']' || c == '}') --depth_;
        ++at_;
      }
      if (!good || depth_ < 0 || depth_ > deepestCut) return std::nullopt;
    }
    if (depth_ != 0 || result_.cuts.empty()) return std::nullopt;
    result_.rest.append(text_.substr(kept_));
    return std::move(result_);
  }

 private:
  std::size_t skipBlanks(std::size_t at) const {
    while (at < text_.size() && isBlank(text_[at])) ++at;
    return at;
  }

  /// Moves past the string at hand; false for one that has no end or holds the marker.
  bool passQuoted() {
    for (++at_; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (c == '"') return ++at_, true;
      if (c == '\\') {
        if (isEscapedMarker(at_)) return false;
        ++at_;
      } else if (c == marker[0] && text_.substr(at_, marker.size()) == marker) {
        return false;
      }
    }
    return false;
  }

  bool isEscapedMarker(std::size_t at) const {
    const std::string_view escape = text_.substr(at, 6);
    if (escape.size() < 6 || escape[1] != 'u') return false;
    for (std::size_t i = 2; i < 6; ++i) {
      const char lower = escape[i] >= 'A' && escape[i] <= 'F' ? escape[i] - 'A' + 'a' : escape[i];
      if (lower != "fdd0"[i - 2]) return false;
    }
    return true;
  }

  /// A string; behind a key whose value is a document of its own, the document too.
  bool passString() {
    const std::size_t first = at_ + 1;
    if (!passQuoted()) return false;
    if (depth_ != 1) return true;
    const std::string_view key = text_.substr(first, at_ - 1 - first);
    if (key != "hierarchy" && key != "parts" && key != "correctives" && key != "flow") return true;
    std::size_t value = skipBlanks(at_);
    if (value == text_.size() || text_[value] != ':') return true;
    value = skipBlanks(value + 1);
    if (value == text_.size() || text_[value] != '{') return true;
    const std::size_t end = pastObject(value);
    return end != std::string_view::npos && cut(value, end);
  }

  /// The index past the object that opens at `at`.
  std::size_t pastObject(std::size_t at) const {
    int depth = 0;
    for (; at < text_.size(); ++at) {
      const char c = text_[at];
      if (c == '"') {
        for (++at; at < text_.size() && text_[at] != '"'; ++at) at += text_[at] == '\\';
      } else if (c == '{' || c == '[') {
        if (++depth > deepestCut) return std::string_view::npos;
      } else if (c == '}' || c == ']') {
        if (--depth == 0) return at + 1;
      }
    }
    return std::string_view::npos;
  }

  bool passArrayOrEnter() {
    const std::size_t first = skipBlanks(at_ + 1);
    const char c = first < text_.size() ? text_[first] : ']';
    if (c == '-' || c == 'n' || (c >= '0' && c <= '9')) {
      const std::size_t end = text_.find(']', first);
      if (end == std::string_view::npos) return false;
      if (end - at_ >= worthCutting) return cut(at_, end + 1);
    }
    ++depth_;
    ++at_;
    return true;
  }

  /// False where the span stands in the place of a key, which only a string may.
  bool cut(std::size_t begin, std::size_t end) {
    const std::size_t next = skipBlanks(end);
    if (next < text_.size() && text_[next] == ':') return false;
    result_.rest.append(text_.substr(kept_, begin - kept_));
    result_.rest.append("\"").append(marker).append(std::to_string(result_.cuts.size()));
    result_.rest.append("\"");
    result_.cuts.push_back(text_.substr(begin, end - begin));
    at_ = kept_ = end;
    return true;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t kept_ = 0;  // up to here the text is in the result
  int depth_ = 0;
  GroomCuts result_;
};

}  // namespace

std::optional<GroomCuts> cutGroomText(std::string_view text) {
  return Scanner(text).run();
}

std::optional<std::size_t> cutNumber(const Json& value) {
  if (!value.is_string()) return std::nullopt;
  const std::string& text = value.get_ref<const std::string&>();
  if (!text.starts_with(marker)) return std::nullopt;
  std::size_t number = 0;
  std::from_chars(text.data() + marker.size(), text.data() + text.size(), number);
  return number;
}

}  // namespace kestrane
