// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/eval_context.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "core/base/parallel.h"

namespace kestrane {

void WarningSink::add(std::string text) {
  if (text.empty()) return;
  const std::lock_guard lock(mutex_);
  if (std::find(texts_.begin(), texts_.end(), text) != texts_.end()) return;
  texts_.push_back(std::move(text));
  if (insideParallelLoop()) return;
  std::sort(texts_.begin() + static_cast<std::ptrdiff_t>(settled_), texts_.end() - 1);
  settled_ = texts_.size();
}

std::vector<std::string> WarningSink::texts() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts = texts_;
  std::sort(texts.begin() + static_cast<std::ptrdiff_t>(settled_), texts.end());
  return texts;
}

void SceneTable::set(std::string name, SceneInput input) {
  inputs_.insert_or_assign(std::move(name), std::move(input));
}

const SceneInput* SceneTable::find(std::string_view name) const {
  const auto found = inputs_.find(name);
  return found == inputs_.end() ? nullptr : &found->second;
}

std::uint64_t SceneTable::revision(std::string_view name) const {
  const SceneInput* input = find(name);
  return input ? input->revision : 0;
}

}  // namespace kestrane
