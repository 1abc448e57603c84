// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <stdexcept>

namespace kestrane {

/// The named failures of the system. Each carries one sentence for the user: what is wrong and what
/// to do. Misuse of a data container by a programmer is std::invalid_argument instead.

/// A graph that cannot be read, wired or evaluated.
struct GraphError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A document of a version that this program does not read.
struct SchemaError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A groom file that cannot be read or written.
struct GroomFileError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// An expression that does not compile.
struct ExpressionError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// An image that cannot be read.
struct TextureError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A USD layer that cannot be written.
struct UsdError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace kestrane
