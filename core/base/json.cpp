// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/json.h"

#include <algorithm>

#include "core/base/errors.h"

namespace kestrane {

Json parseJson(std::string_view text) {
  // Found by one scan, since the parser's own depth callback is slow on long arrays.
  int open = 0, deepest = 0;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '\\') ++i;
      if (c == '"') quoted = false;
    } else if (c == '"') {
      quoted = true;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++open);
    } else if (c == ']' || c == '}') {
      --open;
    }
  }
  if (deepest > deepestJson) {
    throw std::runtime_error("the JSON is nested deeper than " + std::to_string(deepestJson) +
                             " levels");
  }
  try {
    return Json::parse(text.begin(), text.end());
  } catch (const Json::exception& error) {
    throw std::runtime_error(jsonMessage(error));
  }
}

std::string jsonMessage(const std::exception& error) {
  std::string_view message = error.what();
  if (!dynamic_cast<const Json::exception*>(&error)) return std::string(message);
  if (const auto end = message.find("] "); end != std::string_view::npos) {
    message.remove_prefix(end + 2);
  }
  // The library quotes what it could not read, which need not be text.
  std::string text;
  for (const char c : message) {
    const bool plain =
        static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7F;
    text += plain ? c : '?';
  }
  return text;
}

void checkVersion(const Json& document, std::string_view kind, std::int64_t current,
                  std::int64_t oldest) {
  const std::string name(kind);
  if (!document.is_object()) throw SchemaError(name + " must be a JSON object");
  const auto found = document.find("version");
  if (found == document.end()) return;
  if (!found->is_number_integer()) {
    throw SchemaError(name + " version " +
                      found->dump(-1, ' ', false, Json::error_handler_t::replace) +
                      " is not a whole number");
  }
  // A number above the signed range is newer than anything.
  const bool huge = found->is_number_unsigned() && found->get<std::uint64_t>() > INT64_MAX;
  const std::int64_t version = huge ? INT64_MAX : found->get<std::int64_t>();
  if (version > current) {
    throw SchemaError(name + " version " + found->dump() +
                      " is newer than this Kestrane supports (" + std::to_string(current) +
                      "); update Kestrane to open it");
  }
  if (version < 1) {
    throw SchemaError(name + " version " + std::to_string(version) + " is not valid");
  }
  if (version < oldest) {
    throw SchemaError(name + " version " + std::to_string(version) +
                      " is older than this Kestrane reads (" + std::to_string(oldest) + ")");
  }
}

}  // namespace kestrane
