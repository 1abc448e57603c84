// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/verify_incremental.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "core/base/errors.h"
#include "core/data/strand_diff.h"

namespace kestrane {

namespace {

bool sameLayout(const StrandSet& a, const StrandSet& b) {
  return a.strandCount() == b.strandCount() && a.pointCount() == b.pointCount() &&
         a.ids() == b.ids() && a.offsets() == b.offsets() &&
         a.strandChannelNames() == b.strandChannelNames() &&
         a.pointChannelNames() == b.pointChannelNames();
}

/// The fault of a record of changes, if there is one.
std::string recordFault(const StrandSet& previous, const StrandSet& result,
                        const StrandChanges& record) {
  constexpr const char* layoutFault = "it says only some strands changed, but the set's layout did";
  if (!sameLayout(previous, result)) return layoutFault;
  std::vector<bool> listed(result.strandCount(), false);
  for (const std::uint32_t strand : record.strands) {
    if (strand >= listed.size()) return "it lists a strand past the set's end";
    listed[strand] = true;
  }
  // Attachments go by reference and are no matter of single strands.
  StrandSet aligned = previous;
  aligned.cardMesh = result.cardMesh;
  aligned.featherLayers = result.featherLayers;
  aligned.scaleMeshes = result.scaleMeshes;
  const StrandChangesPtr real = changedStrands(aligned, result);
  if (!real) return layoutFault;
  for (const std::uint32_t strand : real->strands) {
    if (!listed[strand]) {
      return "strand " + std::to_string(strand) + " changed but is not listed as changed";
    }
  }
  return {};
}

std::string outputFault(const GraphValue& full, const GraphValue& result,
                        const GraphValue* previous, const StrandChangesPtr& changes) {
  if (full.index() != result.index()) return "it made another kind of value than a full evaluation";
  if (const auto guides = valueAs<GuideSet>(result)) {
    if (contentHash(*guides) != contentHash(*valueAs<GuideSet>(full))) {
      return "its guides differ from a full evaluation's";
    }
  }
  const auto strands = valueAs<StrandSet>(result);
  if (!strands) return {};
  if (strands->contentHash() != valueAs<StrandSet>(full)->contentHash()) {
    return "its strands differ from a full evaluation's";
  }
  const auto before = previous ? valueAs<StrandSet>(*previous) : nullptr;
  if (!before || !changes || changes->all) return {};
  return recordFault(*before, *strands, *changes);
}

}  // namespace

void checkIncremental(const Operator& op, const std::string& nodeName, const EvalContext& context,
                      std::span<const GraphValue> inputs, std::span<const GraphValue> previous,
                      std::span<const GraphValue> results,
                      std::span<const StrandChangesPtr> changes) {
  // Its warnings were given by the evaluation that it repeats.
  WarningSink unheard;
  EvalContext again = context;
  again.warnings = &unheard;
  const std::unique_ptr<Operator> fresh = freshOperator(op);
  const std::vector<GraphValue> full = fresh->evaluateAll(again, inputs);
  const std::vector<PortSpec> ports = op.outputs();
  for (std::size_t i = 0; i < results.size(); ++i) {
    const GraphValue none;
    const std::string fault = outputFault(i < full.size() ? full[i] : none, results[i],
                                          i < previous.size() ? &previous[i] : nullptr,
                                          i < changes.size() ? changes[i] : nullptr);
    if (fault.empty()) continue;
    const std::string port = results.size() > 1 ? "output '" + ports.at(i).name + "': " : "";
    throw GraphError(nodeName + " evaluated incrementally: " + port + fault);
  }
}

}  // namespace kestrane
