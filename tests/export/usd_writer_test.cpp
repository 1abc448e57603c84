// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/export/usd_writer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <new>
#include <optional>
#include <thread>

#include "core/base/errors.h"
#include "core/base/file.h"
#include "core/base/parallel.h"
#include "core/export/usd_spool.h"
#include "tests/support/groom_checks.h"
#include "tests/support/temp_folder.h"

/// For larger objects there is no memory.
static std::atomic<std::size_t> largestObject = std::numeric_limits<std::size_t>::max();

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return size > largestObject ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
}
void* operator new(std::size_t size) {
  if (void* const memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}

namespace kestrane {
namespace {

namespace fs = std::filesystem;

class UsdLayers : public testing::Test {
 protected:
  UsdLayers() : folder(test::tempFolder("usd_layers")) {
    fs::remove_all(folder);
    fs::create_directories(folder);
    path = folder + "hair.usda";
  }
  ~UsdLayers() override { fs::remove_all(folder); }

  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder)) {
      found.push_back(entry.path().filename().string());
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  std::string folder, path;
};

using Names = std::vector<std::string>;

std::string messageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const UsdError& error) {
    return error.what();
  }
  return "no failure";
}

/// Two curves, and between them a strand that is too short for one.
StrandSet threeStrands() {
  StrandSet set;
  const std::vector<Vec3f> a = {{0, 0, 0}, {0, 1.5f, 0}}, b = {{9, 9, 9}},
                           c = {{1, -2, 0.1f}, {1e-7f, 3, 4}, {-1, 5, 16777216}};
  set.addStrand(7, {}, a, std::vector<float>{0.2f, 0.1f});
  set.addStrand(8, {}, b, std::vector<float>{50.0f});
  set.addStrand(0x8000000000000000u + 5, {}, c, std::vector<float>{0.4f, 0.2f, 0});
  auto& tint = set.addPointChannel("tint", 0.0f);
  for (std::size_t i = 0; i < tint.size(); ++i) tint[i] = static_cast<float>(i);
  auto& clump = set.addStrandChannel("clump id", 0.0f);
  for (std::size_t i = 0; i < clump.size(); ++i) clump[i] = 10.0f * static_cast<float>(i);
  set.addStrandChannel("_hidden", 1.0f);
  return set;
}

TEST_F(UsdLayers, HaveThisText) {
  const StrandSet set = threeStrands();
  const std::vector<Vec2f> uvs = {{0, 1}, {9, 9}, {0.25f, 0.5f}};
  const std::vector<Vec3f> colors = {{1, 0, 0}, {9, 9, 9}, {0, 0.5f, 1}};
  UsdWriter writer(path, "My hair", 24, 0.01, "Y");
  writer.options.note = "said \"so\"\nhere";
  writer.options.writeUvs = writer.options.writeColors = true;
  writer.writeFrame(1, set, {uvs, colors});
  writer.options.writeUvs = false;  // too late
  StrandSet later = set;
  later.removePointChannel("tint");
  later.mutablePoints()[0] = {0, 0.5f, 0};
  writer.writeFrame(2.5, later, {uvs, colors});
  EXPECT_EQ(writer.skippedStrands(), 1u);
  EXPECT_FALSE(fs::exists(path));
  writer.close();
  EXPECT_EQ(names(), Names{"hair.usda"});
  EXPECT_EQ(readWholeFile(path), R"(#usda 1.0
(
    defaultPrim = "My_hair"
    doc = "Kestrane 0.2.0: said \"so\"\nhere"
    startTimeCode = 1
    endTimeCode = 2.5
    framesPerSecond = 24
    timeCodesPerSecond = 24
    metersPerUnit = 0.01
    upAxis = "Y"
)

def Xform "My_hair" (
    kind = "component"
)
{
    def BasisCurves "strands"
    {
        uniform token type = "linear"
        uniform token wrap = "nonperiodic"
        int[] curveVertexCounts.timeSamples = {
        1: [2, 3],
        2.5: [2, 3],
        }
        point3f[] points.timeSamples = {
        1: [(0, 0, 0), (0, 1.5, 0), (1, -2, 0.1), (1e-07, 3, 4), (-1, 5, 16777216)],
        2.5: [(0, 0.5, 0), (0, 1.5, 0), (1, -2, 0.1), (1e-07, 3, 4), (-1, 5, 16777216)],
        }
        float3[] extent.timeSamples = {
        1: [(-1.2, -2.2, -0.2), (1.2, 5.2, 16777216)],
        2.5: [(-1.2, -2.2, -0.2), (1.2, 5.2, 16777216)],
        }
        float[] widths (
            interpolation = "vertex"
        )
        float[] widths.timeSamples = {
        1: [0.2, 0.1, 0.4, 0.2, 0],
        2.5: [0.2, 0.1, 0.4, 0.2, 0],
        }
        int64[] primvars:strandId (
            interpolation = "uniform"
        )
        int64[] primvars:strandId.timeSamples = {
        1: [7, -9223372036854775803],
        2.5: [7, -9223372036854775803],
        }
        texCoord2f[] primvars:st (
            interpolation = "uniform"
        )
        texCoord2f[] primvars:st.timeSamples = {
        1: [(0, 1), (0.25, 0.5)],
        2.5: [(0, 1), (0.25, 0.5)],
        }
        color3f[] primvars:displayColor (
            interpolation = "uniform"
        )
        color3f[] primvars:displayColor.timeSamples = {
        1: [(1, 0, 0), (0, 0.5, 1)],
        2.5: [(1, 0, 0), (0, 0.5, 1)],
        }
        float[] primvars:tint (
            interpolation = "vertex"
        )
        float[] primvars:tint.timeSamples = {
        1: [0, 1, 3, 4, 5],
        2.5: [0, 0, 0, 0, 0],
        }
        float[] primvars:clump_id (
            interpolation = "uniform"
        )
        float[] primvars:clump_id.timeSamples = {
        1: [0, 20],
        2.5: [0, 20],
        }
    }
}
)");
}

TEST_F(UsdLayers, WithoutStrandsOrFramesAreStillLayers) {
  UsdWriter none(path, "", 25, 1, "Z");
  none.options.invisibleStrands = true;
  none.close();
  EXPECT_EQ(readWholeFile(path), R"(#usda 1.0
(
    defaultPrim = "_"
    doc = "Kestrane 0.2.0"
    framesPerSecond = 25
    timeCodesPerSecond = 25
    metersPerUnit = 1
    upAxis = "Z"
)

def Xform "_" (
    kind = "component"
)
{
    def BasisCurves "strands"
    {
        uniform token type = "linear"
        uniform token wrap = "nonperiodic"
        token visibility = "invisible"
    }
}
)");
  UsdWriter empty(path, "a", 25, 1, "Z");
  empty.writeFrame(-1, StrandSet());
  empty.close();
  const std::string text = readWholeFile(path);
  EXPECT_NE(text.find("point3f[] points.timeSamples = {\n        -1: [],\n"), std::string::npos);
  EXPECT_NE(text.find("extent.timeSamples = {\n        -1: [(3.4028235e+38, 3.4028235e+38, "
                      "3.4028235e+38), (-3.4028235e+38, "),
            std::string::npos);
}

/// The numbers of the one sample of an attribute.
std::vector<float> sampleOf(const std::string& layer, const std::string& attribute) {
  std::size_t at = layer.find(attribute + ".timeSamples");
  at = layer.find('[', at);
  std::vector<float> values;
  for (const char* text = layer.c_str() + at; *text != ']';) {
    char* end = nullptr;
    values.push_back(std::strtof(text + std::strspn(text, "[(), "), &end));
    text = end + std::strspn(end, "), (");
  }
  return values;
}

TEST_F(UsdLayers, HoldEveryPointInOrder) {
  StrandSet set = test::makeStrands(9000, 7);
  set.append(test::makeStrands(3, 5000));
  set.append(test::makeStrands(500, 1));
  set.append(test::makeStrands(100, 2));
  UsdWriter writer(path, "hair", 24, 0.01, "Y");
  writer.writeFrame(0, set);
  EXPECT_EQ(writer.skippedStrands(), 500u);
  writer.close();
  const std::string layer = readWholeFile(path);
  std::vector<float> points, widths;
  for (std::size_t i = 0; i < set.pointCount(); ++i) {
    if (i >= 9000 * 7 + 3 * 5000 && i < 9000 * 7 + 3 * 5000 + 500) continue;
    for (int axis = 0; axis < 3; ++axis) points.push_back(set.points()[i][axis]);
    widths.push_back(set.widths()[i]);
  }
  EXPECT_EQ(sampleOf(layer, " points"), points);
  EXPECT_EQ(sampleOf(layer, " widths"), widths);
  EXPECT_EQ(sampleOf(layer, "curveVertexCounts").size(), 9000u + 3 + 100);
}

TEST_F(UsdLayers, ThreadsDoNotChangeTheText) {
  StrandSet set = test::makeStrands(20000, 9);
  set.append(test::makeStrands(700, 1));
  set.append(test::makeStrands(5000, 3));
  set.addPointChannel("a", 0.5f);
  const auto layerWith = [&](std::size_t threads) {
    setThreadCount(threads);
    UsdWriter writer(path, "hair", 24, 0.01, "Y");
    writer.writeFrame(0, set);
    writer.writeFrame(1, set);
    writer.close();
    setThreadCount(0);
    return readWholeFile(path);
  };
  const std::string one = layerWith(1);
  for (const std::size_t threads : {2u, 8u, 0u}) EXPECT_TRUE(layerWith(threads) == one) << threads;
}

TEST_F(UsdLayers, TextsThatAreNoUtf8AreMadeSo) {
  UsdWriter writer(path, "a", 25, 1, "Y");
  writer.options.note = "caf\xc3\xa9 caf\xe9 \xed\xa0\x80";
  writer.close();
  EXPECT_NE(
      readWholeFile(path).find("Kestrane 0.2.0: caf\xc3\xa9 caf\uFFFD \uFFFD\uFFFD\uFFFD\"\n"),
      std::string::npos);
}

TEST_F(UsdLayers, ChannelsHaveNamesOfTheirOwn) {
  StrandSet set = test::makeStrands(2, 2);
  for (const char* name : {"a b", "a_b", "st", "widths", "7up", "ÄÖ", "x:indices"}) {
    set.addPointChannel(name, 1.0f);
  }
  for (const char* name : {"a?b", "strandId", "left out"}) set.addStrandChannel(name, 2.0f);
  UsdWriter writer(path, "hair", 24, 0.01, "Y");
  writer.options.strandChannels = Names{"strandId", "a?b", "nowhere"};
  writer.writeFrame(0, set);
  writer.close();
  const std::string layer = readWholeFile(path);
  Names found;
  const std::string before = "float[] primvars:";
  for (std::size_t at = layer.find(before); at != std::string::npos; at = layer.find(before, at)) {
    at += before.size();
    const std::size_t end = layer.find_first_of(" .", at);
    if (layer[end] == '.') found.push_back(layer.substr(at, end - at));
  }
  EXPECT_EQ(found, (Names{"_7up", "a_b", "a_b_2", "st_2", "widths_2", "x_indices", "__",
                          "strandId_2", "a_b_3"}));
}

TEST_F(UsdLayers, NumbersThatAreNotFiniteAreWrittenAndDoNotSpoilTheExtent) {
  constexpr float inf = std::numeric_limits<float>::infinity();
  StrandSet set;
  const std::vector<Vec3f> points = {{0, 1, 2}, {inf, -inf, std::nanf("")}, {3, 4, 5}};
  set.addStrand(1, {}, points, std::vector<float>{2, -std::nanf(""), inf});
  UsdWriter writer(path, "hair", 24, 0.01, "Y");
  writer.writeFrame(0, set);
  writer.close();
  const std::string layer = readWholeFile(path);
  for (const char* text :
       {"[(0, 1, 2), (inf, -inf, nan), (3, 4, 5)]", "[2, nan, inf]", "[(-1, 0, 1), (4, 5, 6)]"}) {
    EXPECT_NE(layer.find(text), std::string::npos) << text;
  }
}

TEST_F(UsdLayers, FailuresLeaveTheTargetAndNothingElse) {
  const StrandSet set = threeStrands();
  writeWholeFile(path, "old");
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  {
    UsdWriter writer(path, "hair", 24, 0.01, "Y");
    EXPECT_EQ(messageOf([&] { writer.writeFrame(nan, set); }), "frames must increase");
    writer.writeFrame(3, set);
    for (const double time : {3.0, 2.0, -1.0, nan}) {
      EXPECT_EQ(messageOf([&] { writer.writeFrame(time, set); }), "frames must increase");
    }
    EXPECT_GT(names().size(), 5u);  // the samples, gathered beside the target
    writer.abandon();
    EXPECT_EQ(names(), Names{"hair.usda"});
    EXPECT_EQ(messageOf([&] { writer.writeFrame(4, set); }), "writeFrame after close");
    writer.close();
  }
  EXPECT_EQ(readWholeFile(path), "old");
  {
    UsdWriter writer(path, "hair", 24, 0.01, "Y");
    writer.options.writeUvs = true;
    EXPECT_THROW(writer.writeFrame(0, set), std::invalid_argument);
    writer.writeFrame(0, set, {std::vector<Vec2f>(3), {}});  // closed by its end
  }
  EXPECT_NE(readWholeFile(path), "old");
  EXPECT_EQ(names(), Names{"hair.usda"});

  for (const std::string& target : {folder + "none/hair.usda", folder}) {
    UsdWriter writer(target, "hair", 24, 0.01, "Y");
    const std::string message = "cannot write '" + target + "'";
    EXPECT_EQ(messageOf([&] { writer.writeFrame(0, set); }), message);
    EXPECT_EQ(messageOf([&] { writer.writeFrame(1, set); }), message);
    EXPECT_EQ(messageOf([&] { writer.close(); }), message);
    EXPECT_EQ(messageOf([&] { writer.close(); }), "no failure");
    EXPECT_EQ(names(), Names{"hair.usda"});
  }
}

TEST_F(UsdLayers, AFullDiskFailsAtAnyPointOfTheWriting) {
  const StrandSet set = test::makeStrands(3000, 8);
  writeWholeFile(path, "old");
  // A limit on file sizes stands in for the full disk: one that stops the samples, and one that
  // stops the layer, which is larger than each of them.
  const auto previous = std::signal(SIGXFSZ, SIG_IGN);
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  for (const rlim_t limit : {rlim_t{100000}, rlim_t{1000000}}) {
    UsdWriter writer(path, "hair", 24, 0.01, "Y");
    rlimit tight = saved;
    tight.rlim_cur = limit;
    setrlimit(RLIMIT_FSIZE, &tight);
    const std::string message = messageOf([&] {
      writer.writeFrame(0, set);
      writer.close();
    });
    setrlimit(RLIMIT_FSIZE, &saved);
    EXPECT_EQ(message, "cannot write '" + path + "'") << limit;
    EXPECT_EQ(names(), Names{"hair.usda"});
    EXPECT_EQ(readWholeFile(path), "old");
  }
  std::signal(SIGXFSZ, previous);
}

TEST_F(UsdLayers, ALinkStaysAndNothingIsWrittenBesideIt) {
  const std::string links = folder + "links/", link = links + "hair.usda";
  fs::create_directories(links);
  fs::create_symlink("../hair.usda", link);
  UsdWriter writer(link, "hair", 24, 0.01, "Y");
  writer.writeFrame(0, threeStrands());
  EXPECT_EQ(std::distance(fs::directory_iterator(links), fs::directory_iterator()), 1);
  EXPECT_GT(names().size(), 5u);
  writer.close();
  EXPECT_EQ(names(), (Names{"hair.usda", "links"}));
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_TRUE(fs::is_regular_file(path));
}

TEST_F(UsdLayers, WantOfMemoryIsToldAsSuch) {
  const StrandSet set = test::makeStrands(3000, 8);
  writeWholeFile(path, "old");
  for (const bool atOpening : {true, false}) {
    UsdWriter writer(path, "hair", 24, 0.01, "Y");
    if (!atOpening) writer.writeFrame(0, set);
    largestObject = 65536;
    EXPECT_THROW(atOpening ? writer.writeFrame(0, set) : writer.close(), std::bad_alloc);
    largestObject = std::numeric_limits<std::size_t>::max();
    EXPECT_EQ(names(), Names{"hair.usda"});
  }
}

TEST_F(UsdLayers, DevicesAndPipesAreWrittenToAndStay) {
  const StrandSet set = threeStrands();
  // Beside these there may be no room for files, so that samples gather elsewhere.
  const std::string elsewhere = folder + "elsewhere";
  fs::create_directories(elsewhere);
  const char* const found = std::getenv("TMPDIR");
  const std::optional<std::string> before =
      found ? std::optional<std::string>(found) : std::nullopt;
  setenv("TMPDIR", elsewhere.c_str(), 1);
  const auto writeTo = [&](const std::string& target) {
    UsdWriter writer(target, "hair", 24, 0.01, "Y");
    return messageOf([&] {
      writer.writeFrame(0, set);
      writer.close();
    });
  };
  EXPECT_EQ(writeTo(path), "no failure");
  EXPECT_EQ(writeTo("/dev/null"), "no failure");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
  const std::string full = test::fullDevice(folder);
  EXPECT_EQ(writeTo(full), "cannot write '" + full + "'");
  EXPECT_TRUE(fs::is_character_file(full));
  const std::string pipe = folder + "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::string received;
  std::thread reader([&] { received = readWholeFile(pipe); });
  EXPECT_EQ(writeTo(pipe), "no failure");
  reader.join();
  EXPECT_EQ(received, readWholeFile(path));
  fs::remove(folder + "full");
  EXPECT_EQ(names(), (Names{"elsewhere", "hair.usda", "pipe"}));
  EXPECT_TRUE(fs::is_empty(elsewhere));
  before ? setenv("TMPDIR", before->c_str(), 1) : unsetenv("TMPDIR");
}

TEST(UsdMesh, IsWrittenInFull) {
  UsdMesh mesh;
  mesh.faceVertexCounts = {3};
  mesh.faceVertexIndices = {0, 1, 2};
  mesh.points = {{0, 0, 0}, {2, 0, -1}, {0, 0.5f, 0}};
  std::string text;
  UsdWriter::writeMesh(mesh, "  ", text);
  const std::string bare = R"(  uniform token subdivisionScheme = "none"
  int[] faceVertexCounts = [3]
  int[] faceVertexIndices = [0, 1, 2]
  point3f[] points = [(0, 0, 0), (2, 0, -1), (0, 0.5, 0)]
  float3[] extent = [(0, 0, -1), (2, 0.5, 0)]
)";
  EXPECT_EQ(text, bare);
  mesh.normals = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}};
  mesh.uvs = {{0, 0}, {1, 0}, {0, 1}};
  text.clear();
  UsdWriter::writeMesh(mesh, "  ", text);
  EXPECT_EQ(text, bare + R"(  normal3f[] normals = [(0, 0, 1), (0, 0, 1), (0, 0, 1)] (
      interpolation = "vertex"
  )
  texCoord2f[] primvars:st = [(0, 0), (1, 0), (0, 1)] (
      interpolation = "vertex"
  )
)");
}

}  // namespace
}  // namespace kestrane
