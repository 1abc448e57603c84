// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace kestrane {

// UDIM tiles: a texture cut into one file per unit square of UV space. The square of column c (0 to
// 9) and row r (0 to 9) is tile 1001 + c + 10 r.
inline constexpr int firstUdimTile = 1001;
inline constexpr int lastUdimTile = 1100;

/// The path with "<UDIM>" in place of its tile number or of another spelling of the token, or an
/// empty string if the path names a single image. A number counts as a tile's only if another tile
/// of the set lies beside it.
std::string udimPattern(const std::string& path);

/// The file of one tile of a pattern with "<UDIM>" in it.
std::string udimTilePath(const std::string& pattern, int tile);

/// The tiles of a pattern that have a file, ascending; none if the folder cannot be listed.
std::vector<int> udimTiles(const std::string& pattern);

}  // namespace kestrane
