// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/graph/eval_context.h"
#include "core/values/texture.h"

namespace kestrane {

/// Image files that parameters name, found in the context's search paths. Display and previews read
/// "NAME_preview.EXT" beside the file instead, where there is one.

/// Whether the name stands for an image file, or a set of tiles, that exists.
bool isMapFile(const std::string& name, const EvalContext& context);
/// Throws TextureError where it cannot be read.
std::shared_ptr<const Texture> openMapFile(const std::string& name, const EvalContext& context);
/// A hash of which file, or tiles, the name stands for and when they were written; 0 for none.
std::uint64_t mapFileKey(const std::string& name, const EvalContext& context);

}  // namespace kestrane
