// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <unordered_set>

#include "core/base/json.h"
#include "tests/guides/guide_fixtures.h"

namespace kestrane {
namespace {

/// A bound guide and a child of a parent that is gone: nothing in them follows from anything else,
/// so that each value can change alone.
constexpr const char* document = R"({
  "groups": [{"id": 1, "name": "a"}, {"id": 2, "name": "b", "parent": 1}, {"id": 3, "name": "c"}],
  "guides": [
    {"id": 10, "group": 1, "root": [0, 0.25, 0.5], "frameUp": [1, 2, 3],
     "tube": {"radius": [1, 2], "twist": 0}, "attributes": {"x": 1},
     "pointAttributes": {"w": [1, 2]}, "points": [0, 0, 0, 0, 1, 0],
     "rootLocal": [0, 0, 0, 0, 1, 0], "frameUpLocal": [1, 2, 3]},
    {"id": 11, "group": 2, "parent": 99, "root": [-1, 0, 0], "frameUp": [1, 0, 0],
     "tube": {"radius": [1], "twist": 0}, "offsets": [1, 2, 3, 4, 5, 6]}]})";

TEST(GuideHash, SeesEveryField) {
  const struct {
    const char *place, *value;
  } changes[] = {
      {"/groups/2/id", "4"},
      {"/groups/2/name", "\"d\""},
      {"/groups/2/parent", "1"},
      {"/groups/3", R"({"id": 5, "name": "e"})"},
      {"/guides/0/id", "12"},
      {"/guides/0/group", "3"},
      {"/guides/1/parent", "98"},
      {"/guides/0/locked", "true"},
      {"/guides/0/root/0", "1"},
      {"/guides/0/root/1", "0.5"},
      {"/guides/0/root/2", "0.25"},
      {"/guides/0/frameUp/0", "7"},
      {"/guides/0/frameUp/1", "7"},
      {"/guides/0/frameUp/2", "7"},
      {"/guides/0/tube/radius/1", "7"},
      {"/guides/0/tube/radius/2", "0"},
      {"/guides/0/tube/twist", "7"},
      {"/guides/0/attributes/x", "7"},
      {"/guides/0/attributes", R"({"y": 1})"},
      {"/guides/0/attributes/y", "0"},
      {"/guides/0/pointAttributes/w/1", "7"},
      {"/guides/0/pointAttributes", R"({"v": [1, 2]})"},
      {"/guides/0/pointAttributes/v", "[0, 0]"},
      {"/guides/0/points/5", "7"},
      {"/guides/0/rootLocal/5", "7"},
      {"/guides/0/frameUpLocal/0", "7"},
      {"/guides/0/frameUpLocal/1", "7"},
      {"/guides/0/frameUpLocal/2", "7"},
      {"/guides/1/offsets/5", "7"},
  };
  std::unordered_set<std::uint64_t> seen{GuideHierarchy::fromJson(document).contentHash()};
  for (const auto& [place, value] : changes) {
    Json changed = parseJson(document);
    changed[Json::json_pointer(place)] = parseJson(value);
    const auto hash = GuideHierarchy::fromJson(changed.dump()).contentHash();
    EXPECT_TRUE(seen.insert(hash).second) << place;
  }
}

}  // namespace
}  // namespace kestrane
