// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kestrane {

/// Finds the file that a path of a groom means. Called before a file is opened, from any thread.
using SearchPathResolver = std::function<std::string(const std::string&)>;

/// Whether a file lies at the path, or for a UDIM pattern one of its tiles.
bool namesFile(const std::string& path);

/// A resolver over folders: a relative path becomes that of the first folder which holds such a
/// file (or, for a UDIM pattern, one of its tiles). An absolute path, and one that is found
/// nowhere, stay as they are.
SearchPathResolver searchPathResolver(std::vector<std::string> folders);

}  // namespace kestrane
