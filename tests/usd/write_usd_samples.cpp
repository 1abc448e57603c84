// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Writes layers of every kind into a folder, each with a summary of what it should hold for
// check_usd.py.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <limits>

#include "core/base/file.h"
#include "core/base/json.h"
#include "core/export/usd_writer.h"
#include "core/session/groom_session.h"
#include "tests/session/groom_fixtures.h"
#include "tests/support/groom_checks.h"

namespace kestrane {
namespace {

Json numberJson(float value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  return value;
}

Json vectorJson(Vec3f a) {
  return {numberJson(a.x), numberJson(a.y), numberJson(a.z)};
}

/// The strands' own box, with half the largest width on all sides.
Json extentJson(const StrandSet& set) {
  const Extent box = set.extent();
  float width = 0.0f;
  for (const float each : set.widths()) width = std::max(width, each);
  const Vec3f half{0.5f * width, 0.5f * width, 0.5f * width};
  return {vectorJson(box.min - half), vectorJson(box.max + half)};
}

/// One frame as the layer should hold it: without strands of fewer than two points.
Json frameJson(double time, const StrandSet& set, const UsdStrandValues& values,
               const std::vector<std::pair<std::string, std::string>>& channels) {
  Json frame = {{"time", time}};
  for (const char* key : {"counts", "ids", "points", "widths"}) frame[key] = Json::array();
  if (!values.uvs.empty()) frame["uvs"] = Json::array();
  if (!values.colors.empty()) frame["colors"] = Json::array();
  for (const auto& [channel, name] : channels) frame["channels"][name] = Json::array();
  std::vector<std::uint32_t> kept;
  for (std::size_t i = 0; i < set.strandCount(); ++i) {
    const std::size_t first = set.offsets()[i], last = set.offsets()[i + 1];
    if (last - first < 2) continue;
    kept.push_back(static_cast<std::uint32_t>(i));
    frame["counts"].push_back(last - first);
    frame["ids"].push_back(static_cast<std::int64_t>(set.ids()[i]));
    if (!values.uvs.empty()) frame["uvs"].push_back({values.uvs[i].x, values.uvs[i].y});
    if (!values.colors.empty()) frame["colors"].push_back(vectorJson(values.colors[i]));
    for (const auto& [channel, name] : channels) {
      if (const auto* perStrand = set.strandChannel(channel)) {
        frame["channels"][name].push_back(numberJson((*perStrand)[i]));
      }
    }
    for (std::size_t k = first; k < last; ++k) {
      frame["points"].push_back(vectorJson(set.points()[k]));
      frame["widths"].push_back(numberJson(set.widths()[k]));
      for (const auto& [channel, name] : channels) {
        if (const auto* perPoint = set.pointChannel(channel)) {
          frame["channels"][name].push_back(numberJson((*perPoint)[k]));
        }
      }
    }
  }
  const StrandSet curves = set.subset(kept);
  if (!kept.empty() && curves.extent().finite) frame["extent"] = extentJson(curves);
  return frame;
}

/// What a whole groom grows.
StrandSet grownStrands() {
  GroomSession session;
  session.setGraph(GroomSession::defaultGraph());
  session.setScalp(std::make_shared<const ScalpMesh>(test::makeGrid(4)));
  session.setGuides(std::make_shared<const GuideHierarchy>(test::makeGuides()));
  session.evaluate({});
  if (!session.strands()) throw std::runtime_error("the groom gives no strands");
  return *session.strands();
}

class Samples {
 public:
  explicit Samples(std::string folder) : folder_(std::move(folder)) {}

  void writeAll() {
    write("no_frame", {});
    write("no_strands", {StrandSet()});

    StrandSet plain = test::makeStrands(300, 5);
    write("one_frame", {plain});

    const StrandSet grown = grownStrands();
    for (const auto& names : {grown.pointChannelNames(), grown.strandChannelNames()}) {
      for (const std::string& name : names) channels_.emplace_back(name, name);
    }
    write("groom", {grown});

    StrandSet mixed = test::makeStrands(40, 9, 3);
    mixed.append(test::makeStrands(20, 1, 4));
    mixed.append(test::makeStrands(30, 2, 5));
    mixed.mutableIds()[0] = std::numeric_limits<std::uint64_t>::max();
    mixed.mutableIds()[1] = std::uint64_t{1} << 63;
    auto& clump = mixed.addStrandChannel("clump id", 0.0f);
    for (std::size_t i = 0; i < clump.size(); ++i) clump[i] = 0.1f * static_cast<float>(i);
    auto& wet = mixed.addPointChannel("wet", 0.0f);
    for (std::size_t i = 0; i < wet.size(); ++i) wet[i] = 1.0f / static_cast<float>(i + 1);
    mixed.addPointChannel("_hidden", 1.0f);
    StrandSet moved = mixed;
    for (Vec3f& point : moved.mutablePoints()) point = point * 1.7f + Vec3f{0, -30, 1e-6f};
    channels_ = {{"wet", "wet"}, {"clump id", "clump_id"}};
    values_ = true;
    write("channels_and_frames", {mixed, moved, mixed});
    channels_.clear();
    values_ = false;

    StrandSet odd = test::makeStrands(3, 4);
    constexpr float inf = std::numeric_limits<float>::infinity();
    odd.mutablePoints()[1] = {inf, -inf, std::numeric_limits<float>::quiet_NaN()};
    odd.mutablePoints()[2] = {1e-38f, 3.4e38f, -0.0f};
    write("odd \"numbers\" \xc3\xa4", {odd});
  }

 private:
  void write(const std::string& name, const std::vector<StrandSet>& frames) {
    const std::string base = folder_ + "/" + name;
    UsdWriter writer(base + ".usda", "1 groom", 24, 0.01, "Y");
    writer.options.note = name + "\n\"quoted\" \\ and more";
    writer.options.writeUvs = writer.options.writeColors = values_;
    Json summary = {{"defaultPrim", "_1_groom"},
                    {"upAxis", "Y"},
                    {"metersPerUnit", 0.01},
                    {"framesPerSecond", 24},
                    {"doc", "Kestrane 0.2.0: " + writer.options.note},
                    {"channels", Json::array()},
                    {"frames", Json::array()}};
    for (const auto& [channel, attribute] : channels_) summary["channels"].push_back(attribute);
    double time = -0.5;
    for (const StrandSet& set : frames) {
      std::vector<Vec2f> uvs;
      std::vector<Vec3f> colors;
      for (std::size_t i = 0; values_ && i < set.strandCount(); ++i) {
        uvs.push_back({set.roots()[i].u, set.roots()[i].v});
        colors.push_back({0.1f * static_cast<float>(i), 0.5f, 1e-5f});
      }
      writer.writeFrame(time, set, {uvs, colors});
      summary["frames"].push_back(frameJson(time, set, {uvs, colors}, channels_));
      time += 1.25;
    }
    writer.close();
    writeWholeFile(base + ".json", summary.dump());
  }

  std::string folder_;
  std::vector<std::pair<std::string, std::string>> channels_;
  bool values_ = false;
};

}  // namespace
}  // namespace kestrane

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "write_usd_samples FOLDER\n");
    return 2;
  }
  try {
    std::filesystem::create_directories(argv[1]);
    kestrane::Samples(argv[1]).writeAll();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
