// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/expr/scan.h"

#include "core/expr/cursor.h"
#include "core/expr/expression.h"

namespace kestrane {

ExpressionScan Expression::scan(std::string_view text) {
  ExpressionScan result;
  detail::ExpressionCursor cursor(text);
  bool inMapCall = false;  // between the bracket of map or cmap and what follows it
  for (cursor.skipSpace(); !cursor.atEnd(); cursor.skipSpace()) {
    const char c = cursor.peek();
    if (detail::isQuote(c)) {
      const auto quoted = cursor.quoted();
      if (!quoted) return result;
      if (inMapCall) result.maps.emplace(*quoted);
      inMapCall = false;
      continue;
    }
    inMapCall = false;
    if (c == '$') {
      cursor.skip();
      if (const auto name = cursor.name(); !name.empty()) result.dollarNames.emplace(name);
    } else if (detail::isNameStart(c)) {
      const auto name = cursor.name();
      const bool called = cursor.accept("(");
      (called ? result.functions : result.names).emplace(name);
      inMapCall = called && (name == "map" || name == "cmap");
    } else if (!cursor.number()) {
      cursor.skip();
    }
  }
  return result;
}

}  // namespace kestrane
