// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/json.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "core/base/errors.h"

namespace kestrane {

namespace {

/// How deep objects and arrays are nested. Found by one scan, so that the parser never descends
/// into what is refused.
int nestingOf(std::string_view text) {
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
  return deepest;
}

/// Builds the tree from the parser's events, because a tree alone no longer tells how a number was
/// spelled.
class TreeBuilder final : public nlohmann::json_sax<Json> {
 public:
  Json root;

  bool null() override { return put(nullptr); }
  bool boolean(bool value) override { return put(value); }
  bool number_integer(std::int64_t value) override { return put(value); }
  bool number_unsigned(std::uint64_t value) override { return put(value); }
  bool number_float(double value, const std::string& token) override {
    const bool isParam = !open_.empty() && open_.back().isParams;
    if (isParam && token.find_first_of(".eE") == std::string::npos) {
      throw GraphError("param '" + key_ + "' is out of range for an integer");
    }
    return put(value);
  }
  bool string(std::string& value) override { return put(std::move(value)); }
  bool binary(Json::binary_t&) override { return false; }  // no text holds any
  bool start_object(std::size_t) override { return open(Json::object()); }
  bool key(std::string& name) override {
    key_ = std::move(name);
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(Json::array()); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t, const std::string&, const Json::exception& error) override {
    throw std::runtime_error(jsonMessage(error));
  }

 private:
  /// An object or array that is not closed yet; its parents do not change meanwhile, so it stays in
  /// its place.
  struct Open {
    Json* value;
    bool isParams;
  };

  bool put(Json value) {
    place(std::move(value));
    return true;
  }
  bool open(Json value) {
    const bool isParams = !open_.empty() && open_.back().value->is_object() && key_ == "params";
    const bool isObject = value.is_object();
    open_.push_back({&place(std::move(value)), isParams && isObject});
    return true;
  }
  bool close() {
    open_.pop_back();
    return true;
  }
  Json& place(Json&& value) {
    if (open_.empty()) return root = std::move(value);
    Json& holder = *open_.back().value;
    if (holder.is_object()) return holder[std::move(key_)] = std::move(value);
    holder.push_back(std::move(value));
    return holder.back();
  }

  std::vector<Open> open_;
  std::string key_;  // of the value that comes next
};

}  // namespace

Json parseJson(std::string_view text, int deepest) {
  if (nestingOf(text) > deepest) {
    throw std::runtime_error("the JSON is nested deeper than " + std::to_string(deepest) +
                             " levels");
  }
  TreeBuilder builder;
  Json::sax_parse(text.begin(), text.end(), &builder);
  return std::move(builder.root);
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
  const std::string shown = found->dump(-1, ' ', false, Json::error_handler_t::replace);
  // What is too large for the signed range, and then perhaps read as a float, still has its order.
  const double size = found->is_number() ? found->get<double>() : 0.0;
  const bool isHuge = std::abs(size) >= 9223372036854775808.0;
  if (!found->is_number_integer() && !isHuge) {
    throw SchemaError(name + " version " + shown + " is not a whole number");
  }
  const std::int64_t version = !isHuge      ? found->get<std::int64_t>()
                               : size > 0.0 ? INT64_MAX
                                            : INT64_MIN;
  if (version > current) {
    throw SchemaError(name + " version " + shown + " is newer than this Kestrane supports (" +
                      std::to_string(current) + "); update Kestrane to open it");
  }
  if (version < 1) {
    throw SchemaError(name + " version " + shown + " is not valid");
  }
  if (version < oldest) {
    throw SchemaError(name + " version " + std::to_string(version) +
                      " is older than this Kestrane reads (" + std::to_string(oldest) + ")");
  }
}

}  // namespace kestrane
