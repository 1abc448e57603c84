// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/vec.h"
#include "core/data/scalp_mesh.h"

namespace kestrane {

/// An OBJ file that cannot be read: one sentence with the file and, where there is one, the line.
struct ObjError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The geometry of an OBJ file: points, UVs, polygons of any size and polylines, all by index.
/// Every index lies within its table. Groups, materials, normals and the rest are passed over.
struct ObjFile {
  std::string name;  // for messages
  std::vector<Vec3f> points;
  std::vector<Vec2f> uvs;
  // Face i has the corners faceStarts[i] to faceStarts[i + 1] - 1.
  std::vector<std::uint64_t> faceStarts{0};
  std::vector<std::int32_t> corners;    // into points
  std::vector<std::int32_t> cornerUvs;  // into uvs, -1 for none; empty if no corner has one
  // Polylines, in the same way.
  std::vector<std::uint64_t> lineStarts{0};
  std::vector<std::int32_t> linePoints;

  std::size_t faceCount() const { return faceStarts.size() - 1; }
  std::size_t lineCount() const { return lineStarts.size() - 1; }
};

/// Throws ObjError for anything that is no readable, whole OBJ text: not a file, binary, numbers
/// that are none or not finite, indices that are 0 or name nothing.
ObjFile readObj(const std::string& path);
ObjFile parseObj(std::string_view text, std::string name);

/// The polygons as a scalp: triangles are fans from each polygon's first corner, and the polygons
/// are kept for subdivision. A corner without a UV gets (0, 0) where others have one. Throws
/// ObjError when there are no faces.
ScalpMeshPtr scalpFromObj(const ObjFile& obj);
/// How many corners lack a UV while others have one.
std::size_t cornersWithoutUv(const ObjFile& obj);

/// The polylines' points. Throws ObjError when there are none.
std::vector<std::vector<Vec3f>> curvesFromObj(const ObjFile& obj);

}  // namespace kestrane
