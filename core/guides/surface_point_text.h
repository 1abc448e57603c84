// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "core/guides/document_text.h"

namespace kestrane::detail {

/// A surface point as the fields of the object around it: "face", "u" and "v".
inline void appendSurfacePoint(std::string& text, StrandRoot point) {
  appendField(text, "face", point.face);
  appendField(text, "u", point.u);
  appendField(text, "v", point.v);
}

inline StrandRoot readSurfacePoint(const Json& json) {
  return {readInt32(json.at("face")), readFloat(json.at("u")), readFloat(json.at("v"))};
}

}  // namespace kestrane::detail
