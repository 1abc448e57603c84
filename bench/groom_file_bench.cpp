// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// Groom files of 300k, 3M and 30M numbers, beside what the standard library formats and the JSON
// library parses of the same. Rates are numbers a second.

#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "core/base/hash.h"
#include "core/base/json.h"
#include "core/base/parallel.h"
#include "core/session/groom_document.h"

namespace kestrane {
namespace {

/// Points as a mesh in centimetres has them.
std::vector<Vec3f> benchPoints(std::int64_t count) {
  std::vector<Vec3f> points(static_cast<std::size_t>(count));
  for (std::size_t i = 0; i < points.size(); ++i) {
    const auto draw = [&](std::uint64_t axis) {
      return 40.0f * unitFloat(mix64(3 * i + axis)) - 20.0f;
    };
    points[i] = {draw(0), draw(1), draw(2)};
  }
  return points;
}

GroomDocument benchDocument(std::int64_t points) {
  GroomDocument document;
  document.scalp.mesh =
      std::make_shared<const ScalpMesh>(benchPoints(points), std::vector<ScalpMesh::Triangle>());
  return document;
}

void count(benchmark::State& state, std::size_t bytes) {
  state.SetItemsProcessed(state.iterations() * state.range(0) * 3);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void groomText(benchmark::State& state) {
  const GroomDocument document = benchDocument(state.range(0));
  std::size_t bytes = 0;
  for (auto _ : state) bytes = groomFileText(document).size();
  count(state, bytes);
}

void groomWriteFile(benchmark::State& state) {
  const GroomDocument document = benchDocument(state.range(0));
  const std::string path =
      (std::filesystem::temp_directory_path() / "kestrane_bench.groom").string();
  for (auto _ : state) writeGroomFile(path, document);
  count(state, std::filesystem::file_size(path));
  std::filesystem::remove(path);
}

void groomParse(benchmark::State& state) {
  const GroomDocument document = benchDocument(state.range(0));
  const std::string text = groomFileText(document);
  for (auto _ : state) {
    const GroomDocument read = parseGroomFile(text);
    const auto& a = document.scalp.mesh->points();
    const auto& b = read.scalp.mesh->points();
    if (a.size() != b.size() || std::memcmp(a.data(), b.data(), a.size() * sizeof(Vec3f)) != 0) {
      state.SkipWithError("the file reads back as something else");
      break;
    }
  }
  count(state, text.size());
}

void groomReadFile(benchmark::State& state) {
  const GroomDocument document = benchDocument(state.range(0));
  const std::string path =
      (std::filesystem::temp_directory_path() / "kestrane_bench.groom").string();
  writeGroomFile(path, document);
  for (auto _ : state) benchmark::DoNotOptimize(readGroomFile(path).scalp.mesh);
  count(state, std::filesystem::file_size(path));
  std::filesystem::remove(path);
}

/// The measure of the writer: every number formatted to a buffer, on all threads.
void groomTextByToChars(benchmark::State& state) {
  const std::vector<Vec3f> points = benchPoints(state.range(0));
  for (auto _ : state) {
    parallelRange(0, points.size(), 4096, [&](std::size_t begin, std::size_t end) {
      char text[64];
      for (std::size_t i = begin; i < end; ++i) {
        for (const float value : {points[i].x, points[i].y, points[i].z}) {
          benchmark::DoNotOptimize(std::to_chars(text, text + 64, value).ptr);
          benchmark::DoNotOptimize(text);
        }
      }
    });
  }
  state.SetItemsProcessed(state.iterations() * state.range(0) * 3);
}

/// The measure of the reader: the same text as a tree of the JSON library.
void groomParseByNlohmann(benchmark::State& state) {
  const std::string text = groomFileText(benchDocument(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Json::parse(text));
  count(state, text.size());
}

#define SIZES \
  ->Arg(100000)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond)->UseRealTime()
BENCHMARK(groomTextByToChars) SIZES;
BENCHMARK(groomText) SIZES;
BENCHMARK(groomWriteFile) SIZES;
BENCHMARK(groomParse) SIZES;
BENCHMARK(groomReadFile) SIZES;
BENCHMARK(groomParseByNlohmann)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace kestrane
