// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "core/base/json.h"

namespace kestrane {

/// JSON as the program prints it: indented, with a last line end. Text that is no UTF-8, as a file
/// name may be, is shown with replacement characters.
inline std::string jsonText(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kestrane
