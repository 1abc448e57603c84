// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/guides/guide_json_scan.h"

namespace kestrane::detail {

namespace {

constexpr std::string_view blanks = " \t\r\n";

std::size_t skipBlanks(std::string_view text, std::size_t at) {
  const std::size_t next = text.find_first_not_of(blanks, at);
  return next == std::string_view::npos ? text.size() : next;
}

/// The index past the quote that closes the string opened at `at`; npos when none does.
std::size_t pastString(std::string_view text, std::size_t at) {
  for (++at; at < text.size(); ++at) {
    if (text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      return at + 1;
    }
  }
  return std::string_view::npos;
}

/// Splits the array opened at `at` into its elements; the index past it, npos on a broken one.
std::size_t splitArray(std::string_view text, std::size_t at,
                       std::vector<std::string_view>& elements) {
  at = skipBlanks(text, at + 1);
  if (at < text.size() && text[at] == ']') return at + 1;
  std::size_t begin = at;
  int depth = 0;
  while (at < text.size()) {
    const char c = text[at];
    if (c == '"') {
      at = pastString(text, at);
      if (at == std::string_view::npos) return at;
      continue;
    }
    if (c == '[' || c == '{') ++depth;
    if (depth == 0 && (c == ',' || c == ']')) {
      if (begin == at) return std::string_view::npos;
      elements.push_back(text.substr(begin, at - begin));
      if (c == ']') return at + 1;
      begin = skipBlanks(text, at + 1);
      at = begin;
      continue;
    }
    if (c == ']' || c == '}') {
      if (--depth < 0) return std::string_view::npos;
    }
    ++at;
  }
  return std::string_view::npos;
}

}  // namespace

std::optional<GuideSpans> findGuideSpans(std::string_view text) {
  GuideSpans spans;
  bool found = false;
  int depth = 0;
  for (std::size_t at = 0; at < text.size();) {
    const char c = text[at];
    if (c == '[' || c == '{') ++depth;
    if (c == ']' || c == '}') --depth;
    if (c != '"') {
      ++at;
      continue;
    }
    const std::size_t past = pastString(text, at);
    if (past == std::string_view::npos) return std::nullopt;
    const std::string_view quoted = text.substr(at + 1, past - at - 2);
    at = past;
    if (depth != 1) continue;
    std::size_t value = skipBlanks(text, past);
    const bool isKey = value < text.size() && text[value] == ':';
    if (!isKey) continue;
    if (quoted.find('\\') != std::string_view::npos) return std::nullopt;
    if (quoted != "guides") continue;
    value = skipBlanks(text, value + 1);
    if (found || value >= text.size() || text[value] != '[') return std::nullopt;
    found = true;
    const std::size_t end = splitArray(text, value, spans.elements);
    if (end == std::string_view::npos) return std::nullopt;
    spans.outside.assign(text.substr(0, value)).append("[]").append(text.substr(end));
    at = end;
  }
  if (!found || depth != 0) return std::nullopt;
  return spans;
}

}  // namespace kestrane::detail
