// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/data/strand_set.h"

namespace kestrane {

namespace detail {
class UsdSelection;
class UsdSpool;
}  // namespace detail

/// What a layer holds beside points, widths and IDs. A change after the first frame does nothing.
struct UsdOptions {
  std::string note;  // behind the program's name in the layer's doc text; may be empty
  /// The channels to write, by name, as far as the first frame has them; unless given, all that it
  /// has but those whose name begins with "_".
  std::optional<std::vector<std::string>> pointChannels;
  std::optional<std::vector<std::string>> strandChannels;
  bool writeUvs = false;          // every frame comes with a UV per strand
  bool writeColors = false;       // every frame comes with a colour per strand
  bool invisibleStrands = false;  // something else in the layer stands for them
};

/// Values of one frame, one per strand of the set.
struct UsdStrandValues {
  std::span<const Vec2f> uvs;
  std::span<const Vec3f> colors;
};

/// A mesh as a layer writes it out: polygons with normals and UVs per vertex, both of which may be
/// missing.
struct UsdMesh {
  std::vector<int> faceVertexCounts;
  std::vector<int> faceVertexIndices;
  std::vector<Vec3f> points;
  std::vector<Vec3f> normals;
  std::vector<Vec2f> uvs;
};

/// Writes strands to a USD text layer as linear basis curves, frame by frame. The samples of each
/// attribute gather in a file beside the target until close() puts the layer together and moves it
/// into place, so that memory does not grow with the frames. The text is the same for every number
/// of threads.
///
/// Strands of fewer than two points are left out, since a curve needs two. IDs above 2^63 - 1 are
/// written in two's complement. Channel names that are no identifiers are made ones.
///
/// A layer that cannot be written throws UsdError, leaves the target as it was and removes what was
/// gathered: "cannot write 'PATH'". So does want of memory, as std::bad_alloc. Calls that cannot be
/// throw and change nothing: UsdError "frames must increase", "writeFrame after close";
/// std::invalid_argument for values that are not one per strand. One thread uses a writer.
class UsdWriter {
 public:
  /// `name` of the root prim (made an identifier), `upAxis` Y or Z. Touches no file.
  UsdWriter(std::string path, std::string name, double fps, double metersPerUnit,
            std::string upAxis);
  /// Closes the layer where close() or abandon() has not been called; failures are not told.
  ~UsdWriter();
  UsdWriter(const UsdWriter&) = delete;
  UsdWriter& operator=(const UsdWriter&) = delete;

  UsdOptions options;

  /// Appends a sample. Times must increase. Where options ask for UVs or colours there is one per
  /// strand.
  void writeFrame(double time, const StrandSet& strands, const UsdStrandValues& values = {});

  /// Writes the layer. Does nothing when called again.
  void close();
  /// Ends the export without a layer; the target stays as it was.
  void abandon();

  /// How many strands of fewer than two points were left out, in the frame that had the most.
  std::size_t skippedStrands() const { return skippedStrands_; }

  /// Appends the attributes of a mesh, each line behind `indent`.
  static void writeMesh(const UsdMesh& mesh, std::string_view indent, std::string& out);

 private:
  struct ChannelSpool {
    std::string channel;
    float defaultValue = 0.0f;  // for frames that lack the channel
    std::size_t spool = 0;
  };

  std::size_t addSpool(std::string declaration, std::string metadata);
  void openSpools(const StrandSet& strands);
  void writeStrands(double time, const StrandSet& strands, const UsdStrandValues& values);
  void writeChannel(double time, const ChannelSpool& channel, const Array<float>* values,
                    const detail::UsdSelection& selection);
  std::string head() const;
  [[noreturn]] void fail() const;

  std::string path_;
  std::string name_;
  double fps_;
  double metersPerUnit_;
  std::string upAxis_;
  UsdOptions settled_;  // the options that the first frame was written with
  std::vector<std::unique_ptr<detail::UsdSpool>> spools_;  // in the order of the layer
  std::string spoolBase_;                                  // of their paths
  bool spoolsElsewhere_ = false;                           // not beside the target
  std::vector<ChannelSpool> pointChannels_;
  std::vector<ChannelSpool> strandChannels_;
  std::size_t strandSpoolsEnd_ = 0;
  bool anyFrame_ = false;
  double firstTime_ = 0.0;
  double lastTime_ = 0.0;
  bool closed_ = false;
  bool failed_ = false;
  std::size_t skippedStrands_ = 0;
};

}  // namespace kestrane
