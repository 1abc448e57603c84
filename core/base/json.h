// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "core/base/json_fwd.h"

namespace kestrane {

/// Objects and arrays nested deeper than this are refused, so that no reader or writer that
/// recurses over a document can run out of stack.
inline constexpr int deepestJson = 256;

/// The same for a file that holds such documents: room for the levels that it puts around them, so
/// that a document which can be read alone can also be read back from there.
inline constexpr int deepestHolder = deepestJson + 8;

/// Parses a whole text (leading and trailing white space is free). Throws std::runtime_error with
/// one sentence: what is wrong and at which byte, or that the text is nested too deeply. Callers
/// put the document's name in front. A value under "params" is a whole number or a float by its
/// spelling, so a whole number of more than 64 bits is refused there: GraphError "param 'NAME' is
/// out of range for an integer". Anywhere else it reads as a float.
Json parseJson(std::string_view text, int deepest = deepestJson);

/// The sentence of a failed look-up or parse without the identifier in brackets that the JSON
/// library puts in front and that says nothing to a user; any other exception's text as it is.
std::string jsonMessage(const std::exception& error);

/// Checks the key "version" of a document of the given kind ("graph", "guide data", "groom file").
/// Throws SchemaError with a sentence that names both versions. A missing key counts as 1.
void checkVersion(const Json& document, std::string_view kind, std::int64_t current,
                  std::int64_t oldest = 1);

}  // namespace kestrane
