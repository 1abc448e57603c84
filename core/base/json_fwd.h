// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json_fwd.hpp>

namespace kestrane {

/// JSON whose objects keep the order in which keys were written: all documents of the system.
/// Declared here for headers, which need no more of it; core/base/json.h has the rest.
using Json = nlohmann::ordered_json;

}  // namespace kestrane
