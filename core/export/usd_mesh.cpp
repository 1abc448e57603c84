// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

// A mesh written out in full, as a prototype of instances has it.

#include <algorithm>

#include "core/export/usd_spool.h"
#include "core/export/usd_writer.h"

namespace kestrane {

namespace {

template <class T>
void appendArray(std::string& out, std::string_view indent, std::string_view declaration,
                 const std::vector<T>& values) {
  char text[detail::usdVec3Room];
  out.append(indent).append(declaration).append(" = [");
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) out += ", ";
    out.append(text, detail::writeUsd(text, values[i]));
  }
  out += "]";
}

template <class T>
void appendVertexArray(std::string& out, std::string_view indent, std::string_view declaration,
                       const std::vector<T>& values) {
  if (values.empty()) return;
  appendArray(out, indent, declaration, values);
  out.append(" (\n").append(indent).append("    interpolation = \"vertex\"\n");
  out.append(indent).append(")\n");
}

}  // namespace

void UsdWriter::writeMesh(const UsdMesh& mesh, std::string_view indent, std::string& out) {
  out.append(indent).append("uniform token subdivisionScheme = \"none\"\n");
  appendArray(out, indent, "int[] faceVertexCounts", mesh.faceVertexCounts);
  out += "\n";
  appendArray(out, indent, "int[] faceVertexIndices", mesh.faceVertexIndices);
  out += "\n";
  appendArray(out, indent, "point3f[] points", mesh.points);
  out += "\n";
  Extent box;
  for (const Vec3f point : mesh.points) {
    box.min = min(box.min, point);
    box.max = max(box.max, point);
  }
  appendArray(out, indent, "float3[] extent", std::vector<Vec3f>{box.min, box.max});
  out += "\n";
  appendVertexArray(out, indent, "normal3f[] normals", mesh.normals);
  appendVertexArray(out, indent, "texCoord2f[] primvars:st", mesh.uvs);
}

}  // namespace kestrane
