// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/usd_writer.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <new>
#include <random>
#include <set>
#include <stdexcept>

#include "core/base/errors.h"
#include "core/base/file.h"
#include "core/base/parallel.h"
#include "core/base/text.h"
#include "core/base/version.h"
#include "core/export/usd_spool.h"

namespace kestrane {

namespace {

namespace fs = std::filesystem;
using detail::UsdSelection;
using detail::UsdSpool;
using Run = UsdSelection::Run;

constexpr const char* perPoint = "interpolation = \"vertex\"";
constexpr const char* perStrand = "interpolation = \"uniform\"";

/// What of a set goes into the curves.
struct Kept {
  std::vector<Run> strands;
  std::vector<Run> points;
  std::size_t skipped = 0;
};

Kept keptStrands(const StrandSet& set) {
  Kept kept;
  const Array<std::uint64_t>& offsets = set.offsets();
  for (std::size_t i = 0; i < set.strandCount(); ++i) {
    if (offsets[i + 1] - offsets[i] < 2) {
      ++kept.skipped;
      continue;
    }
    if (kept.strands.empty() || kept.strands.back().end != i) {
      kept.strands.push_back({i, i});
      kept.points.push_back({offsets[i], offsets[i]});
    }
    kept.strands.back().end = i + 1;
    kept.points.back().end = offsets[i + 1];
  }
  return kept;
}

/// The box of the kept points with half the largest width around it. What is not a finite number is
/// left out; without a point it is the box that USD takes for empty.
Extent curveExtent(const StrandSet& set, const UsdSelection& points) {
  struct Part {
    Extent box;
    float width = 0.0f;
  };
  std::vector<Part> parts(points.blockCount());
  parallelRange(0, parts.size(), 4, [&](std::size_t first, std::size_t last) {
    for (std::size_t block = first; block < last; ++block) {
      Part part;
      for (const Run run : points.block(block)) {
        for (std::size_t i = run.begin; i < run.end; ++i) {
          const float width = set.widths()[i];
          if (width > part.width && std::isfinite(width)) part.width = width;
          const Vec3f point = set.points()[i];
          if (!isFinite(point)) continue;
          part.box.min = min(part.box.min, point);
          part.box.max = max(part.box.max, point);
        }
      }
      parts[block] = part;
    }
  });
  Part whole;
  for (const Part& part : parts) {
    whole.box.min = min(whole.box.min, part.box.min);
    whole.box.max = max(whole.box.max, part.box.max);
    whole.width = std::max(whole.width, part.width);
  }
  if (whole.box.min.x <= whole.box.max.x) {
    const float half = 0.5f * whole.width;
    whole.box.min -= {half, half, half};
    whole.box.max += {half, half, half};
  }
  return whole.box;
}

bool isNoPlainFile(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  return fs::exists(status) && !fs::is_regular_file(status);
}

}  // namespace

UsdWriter::UsdWriter(std::string path, std::string name, double fps, double metersPerUnit,
                     std::string upAxis)
    : path_(std::move(path)),
      name_(detail::usdIdentifier(name)),
      fps_(fps),
      metersPerUnit_(metersPerUnit),
      upAxis_(std::move(upAxis)) {}

UsdWriter::~UsdWriter() {
  try {
    close();
  } catch (const std::exception&) {
    // A destructor has nobody to tell.
  }
}

void UsdWriter::fail() const {
  throw UsdError("cannot write '" + path_ + "'");
}

std::size_t UsdWriter::addSpool(std::string declaration, std::string metadata) {
  if (spoolBase_.empty()) {
    spoolBase_ = followLinks(path_);
    // Beside a device or a pipe there may be no room for files.
    spoolsElsewhere_ = isNoPlainFile(path_);
    if (spoolsElsewhere_) {
      const std::string unique = std::to_string(std::random_device()());
      spoolBase_ = (fs::temp_directory_path() / ("kestrane" + unique + "_")).string();
    }
  }
  std::string path = spoolBase_ + std::to_string(spools_.size()) + ".spool";
  spools_.push_back(std::make_unique<UsdSpool>(std::move(declaration), std::move(metadata),
                                               std::move(path), spoolsElsewhere_));
  return spools_.size() - 1;
}

void UsdWriter::openSpools(const StrandSet& strands) {
  if (fs::is_directory(path_)) throw std::runtime_error("the target is a folder");
  addSpool("int[] curveVertexCounts", "");
  addSpool("point3f[] points", "");
  addSpool("float3[] extent", "");
  addSpool("float[] widths", perPoint);
  addSpool("int64[] primvars:strandId", perStrand);
  if (settled_.writeUvs) addSpool("texCoord2f[] primvars:st", perStrand);
  if (settled_.writeColors) addSpool("color3f[] primvars:displayColor", perStrand);

  // Primvars named like a schema's own attribute would take its place.
  std::set<std::string> taken = {"strandId", "st", "displayColor", "widths", "normals"};
  const auto addChannels = [&](const std::optional<std::vector<std::string>>& wanted,
                               const std::vector<std::string>& present, const char* metadata,
                               std::vector<ChannelSpool>& channels) {
    for (const std::string& channel : wanted ? *wanted : present) {
      if (!wanted && channel.starts_with("_")) continue;
      if (std::find(present.begin(), present.end(), channel) == present.end()) continue;
      const std::string plain = detail::usdIdentifier(channel);
      std::string name = plain;
      for (int copy = 2; !taken.insert(name).second; ++copy) {
        name = plain + "_" + std::to_string(copy);
      }
      channels.push_back({channel, 0.0f, addSpool("float[] primvars:" + name, metadata)});
    }
  };
  addChannels(settled_.pointChannels, strands.pointChannelNames(), perPoint, pointChannels_);
  addChannels(settled_.strandChannels, strands.strandChannelNames(), perStrand, strandChannels_);
  for (ChannelSpool& channel : pointChannels_) {
    channel.defaultValue = strands.pointChannelDefault(channel.channel);
  }
  for (ChannelSpool& channel : strandChannels_) {
    channel.defaultValue = strands.strandChannelDefault(channel.channel);
  }
  strandSpoolsEnd_ = spools_.size();
}

void UsdWriter::writeChannel(double time, const ChannelSpool& channel, const Array<float>* values,
                             const UsdSelection& selection) {
  spools_[channel.spool]->writeArray(
      time, selection, detail::usdNumberRoom, [&](char* out, std::size_t i) {
        return detail::writeUsd(out, values != nullptr ? (*values)[i] : channel.defaultValue);
      });
}

void UsdWriter::writeStrands(double time, const StrandSet& strands, const UsdStrandValues& values) {
  const Kept kept = keptStrands(strands);
  skippedStrands_ = std::max(skippedStrands_, kept.skipped);
  const UsdSelection perStrandItems(kept.strands), perPointItems(kept.points);
  std::size_t next = 0;
  const auto writeArray = [&](const UsdSelection& selection, std::size_t room,
                              const auto& valueAt) {
    spools_[next++]->writeArray(time, selection, room, [&](char* out, std::size_t i) {
      return detail::writeUsd(out, valueAt(i));
    });
  };

  const Array<std::uint64_t>& offsets = strands.offsets();
  writeArray(perStrandItems, detail::usdNumberRoom,
             [&](std::size_t i) { return static_cast<std::int64_t>(offsets[i + 1] - offsets[i]); });
  const Vec3f* points = strands.points().data();
  writeArray(perPointItems, detail::usdVec3Room, [=](std::size_t i) { return points[i]; });
  const Extent extent = curveExtent(strands, perPointItems);
  char text[2 * detail::usdVec3Room];
  std::string box = "[";
  box.append(text, detail::writeUsd(text, extent.min)).append(", ");
  box.append(text, detail::writeUsd(text, extent.max)).append("]");
  spools_[next++]->writeSample(time, box);
  const float* widths = strands.widths().data();
  writeArray(perPointItems, detail::usdNumberRoom, [=](std::size_t i) { return widths[i]; });
  const std::uint64_t* ids = strands.ids().data();
  writeArray(perStrandItems, detail::usdNumberRoom,
             [=](std::size_t i) { return static_cast<std::int64_t>(ids[i]); });
  if (settled_.writeUvs) {
    writeArray(perStrandItems, detail::usdVec2Room, [&](std::size_t i) { return values.uvs[i]; });
  }
  if (settled_.writeColors) {
    writeArray(perStrandItems, detail::usdVec3Room,
               [&](std::size_t i) { return values.colors[i]; });
  }
  for (const ChannelSpool& channel : pointChannels_) {
    writeChannel(time, channel, strands.pointChannel(channel.channel), perPointItems);
  }
  for (const ChannelSpool& channel : strandChannels_) {
    writeChannel(time, channel, strands.strandChannel(channel.channel), perStrandItems);
  }
}

void UsdWriter::writeFrame(double time, const StrandSet& strands, const UsdStrandValues& values) {
  if (closed_) throw UsdError("writeFrame after close");
  if (!std::isfinite(time) || (anyFrame_ && time <= lastTime_)) {
    throw UsdError("frames must increase");
  }
  if (!anyFrame_) settled_ = options;
  if (settled_.writeUvs && values.uvs.size() != strands.strandCount()) {
    throw std::invalid_argument("UsdWriter: writeUvs needs a UV per strand");
  }
  if (settled_.writeColors && values.colors.size() != strands.strandCount()) {
    throw std::invalid_argument("UsdWriter: writeColors needs a color per strand");
  }
  if (failed_) fail();
  try {
    if (!anyFrame_) openSpools(strands);
    writeStrands(time, strands, values);
  } catch (const std::bad_alloc&) {
    failed_ = true;
    spools_.clear();
    throw;
  } catch (...) {
    failed_ = true;
    spools_.clear();
    fail();
  }
  if (!anyFrame_) firstTime_ = time;
  lastTime_ = time;
  anyFrame_ = true;
}

std::string UsdWriter::head() const {
  std::string text = "#usda 1.0\n(\n    defaultPrim = \"" + name_ + "\"\n";
  std::string doc = "Kestrane " + std::string(kestraneVersion);
  if (!settled_.note.empty()) doc += ": " + settled_.note;
  text += "    doc = " + detail::usdQuoted(doc) + "\n";
  const auto append = [&](const char* key, double value) {
    text.append("    ").append(key).append(" = ");
    appendNumber(text, value);
    text += "\n";
  };
  if (anyFrame_) {
    append("startTimeCode", firstTime_);
    append("endTimeCode", lastTime_);
  }
  append("framesPerSecond", fps_);
  append("timeCodesPerSecond", fps_);
  append("metersPerUnit", metersPerUnit_);
  text += "    upAxis = " + detail::usdQuoted(upAxis_) + "\n)\n\n";
  text += "def Xform \"" + name_ + "\" (\n    kind = \"component\"\n)\n{\n";
  return text;
}

void UsdWriter::close() {
  if (closed_) return;
  closed_ = true;
  // Whatever happens, what was gathered goes.
  const auto spools = std::move(spools_);
  spools_.clear();
  if (failed_) fail();
  if (!anyFrame_) settled_ = options;
  try {
    OutputFile file(path_);
    const auto write = [&](std::string_view text) { file.write(text); };
    const auto writeSpools = [&](std::size_t first, std::size_t last) {
      for (std::size_t i = first; i < last; ++i) {
        UsdSpool& spool = *spools[i];
        const std::string declaration = "        " + spool.declaration();
        if (!spool.metadata().empty()) {
          write(declaration + " (\n            " + spool.metadata() + "\n        )\n");
        }
        write(declaration + ".timeSamples = {\n");
        spool.copyTo(write);
        write("        }\n");
      }
    };
    write(head());
    write(
        "    def BasisCurves \"strands\"\n    {\n        uniform token type = \"linear\"\n"
        "        uniform token wrap = \"nonperiodic\"\n");
    if (settled_.invisibleStrands) write("        token visibility = \"invisible\"\n");
    writeSpools(0, strandSpoolsEnd_);
    write("    }\n}\n");
    file.commit();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    fail();
  }
}

void UsdWriter::abandon() {
  closed_ = true;
  spools_.clear();
}

}  // namespace kestrane
