// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/base/json.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <span>
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

using Member = std::pair<std::string, Json>;

/// An object of members, emptied. Of members of one name the last value stands, in the first one's
/// place. Adding them one by one would search all that are there for each name.
Json objectOf(std::span<Member> members) {
  std::vector<std::size_t> order(members.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  const auto nameOf = [&](std::size_t i) -> const std::string& { return members[i].first; };
  std::ranges::sort(order, std::ranges::less(),
                    [&](std::size_t i) { return std::pair(std::string_view(nameOf(i)), i); });
  for (auto first = order.begin(); first != order.end();) {
    const auto next = std::find_if(first, order.end(),
                                   [&](std::size_t i) { return nameOf(i) != nameOf(*first); });
    if (next - first > 1) members[*first].second = std::move(members[*(next - 1)].second);
    while (++first != next) members[*first].second = Json::value_t::discarded;
  }
  Json::object_t object;
  object.reserve(members.size());
  for (auto& [name, value] : members) {
    if (!value.is_discarded()) object.emplace_back(std::move(name), std::move(value));
  }
  return object;
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
      throw GraphError("param '" + members_.back().first + "' is out of range for an integer");
    }
    return put(value);
  }
  bool string(std::string& value) override { return put(std::move(value)); }
  bool binary(Json::binary_t&) override { return false; }  // no text holds any
  bool start_object(std::size_t) override { return open(Json::object()); }
  bool key(std::string& name) override {
    members_.emplace_back(std::move(name), nullptr);
    return true;
  }
  bool end_object() override {
    const auto members = std::span(members_).subspan(open_.back().firstMember);
    open_.back().value = objectOf(members);
    members_.resize(members_.size() - members.size());
    return close();
  }
  bool start_array(std::size_t) override { return open(Json::array()); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t, const std::string&, const Json::exception& error) override {
    throw std::runtime_error(jsonMessage(error));
  }

 private:
  /// An object or array that is not closed yet.
  struct Open {
    Json value;
    std::size_t firstMember;  // of an object, which stays empty until it is closed
    bool isParams;
  };

  bool isInObject() const { return !open_.empty() && open_.back().value.is_object(); }
  bool open(Json value) {
    const bool isParams = isInObject() && value.is_object() && members_.back().first == "params";
    open_.push_back({std::move(value), members_.size(), isParams});
    return true;
  }
  bool close() {
    Json closed = std::move(open_.back().value);
    open_.pop_back();
    return put(std::move(closed));
  }
  bool put(Json value) {
    if (isInObject()) {
      members_.back().second = std::move(value);
    } else if (!open_.empty()) {
      open_.back().value.push_back(std::move(value));
    } else {
      root = std::move(value);
    }
    return true;
  }

  std::vector<Open> open_;
  std::vector<Member> members_;  // of all open objects, outermost first
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
