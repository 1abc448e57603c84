// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/graph.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "core/base/errors.h"
#include "core/graph/wire_types.h"

namespace kestrane {

namespace {

constexpr std::array<std::string_view, 3> evaluationWords = {"always", "viewportOnly",
                                                             "renderOnly"};

/// The name, with the first number from 2 behind it that makes it differ from all others.
std::string uniqueName(const std::string& name, const std::map<std::uint32_t, Node>& nodes) {
  const auto hasName = [&name](const auto& entry) { return entry.second.name == name; };
  if (std::none_of(nodes.begin(), nodes.end(), hasName)) return name;
  std::set<std::string_view> taken;
  for (const auto& entry : nodes) taken.insert(entry.second.name);
  for (std::size_t number = 2;; ++number) {
    std::string candidate = name + std::to_string(number);
    if (!taken.count(candidate)) return candidate;
  }
}

}  // namespace

std::string_view nodeEvaluationWord(NodeEvaluation evaluation) {
  const auto index = static_cast<std::size_t>(evaluation);
  return evaluationWords[index < evaluationWords.size() ? index : 0];
}

NodeEvaluation nodeEvaluationFromWord(std::string_view word) {
  const auto found = std::find(evaluationWords.begin(), evaluationWords.end(), word);
  if (found == evaluationWords.end()) {
    throw GraphError("unknown evaluation '" + std::string(word) +
                     "' (always, viewportOnly or renderOnly)");
  }
  return static_cast<NodeEvaluation>(found - evaluationWords.begin());
}

Graph::Graph() = default;
Graph::~Graph() = default;
Graph::Graph(Graph&&) noexcept = default;
Graph& Graph::operator=(Graph&&) noexcept = default;

Graph Graph::copyNodes() const {
  Graph copy;
  copy.nextId_ = nextId_;
  copy.byId_.resize(byId_.size(), nullptr);
  copy.retainResults = retainResults;
  for (const auto& [id, from] : nodes_) {
    Node node;
    node.op = freshOperator(*from.op);
    node.op->parameters.clearWires();
    node.op->adoptState(*from.op);
    node.sources = from.sources;
    node.sourceOutputs = from.sourceOutputs;
    node.paramInputs = from.paramInputs;
    node.paramControls = from.paramControls;
    node.bypass = from.bypass;
    node.evaluation = from.evaluation;
    node.name = from.name;
    node.uiX = from.uiX;
    node.uiY = from.uiY;
    copy.byId_[id] = &copy.nodes_.emplace(id, std::move(node)).first->second;
  }
  return copy;
}

std::uint32_t Graph::addNode(std::unique_ptr<Operator> op, std::string name) {
  if (!op) throw GraphError("addNode: null operator");
  name = uniqueName(name.empty() ? op->type() : name, nodes_);
  return insertNode(std::move(op), std::move(name));
}

std::uint32_t Graph::insertNode(std::unique_ptr<Operator> op, std::string name) {
  // Its parameter set has to answer with defaults and limits from the first.
  if (op->parameters.declarations().specs.empty()) {
    auto specs = effectiveParams(*op);
    if (!specs.empty()) {
      op->parameters.declare(std::make_shared<const ParamDeclarations>(std::move(specs)));
    }
  }
  const std::size_t ports = op->inputs().size();
  Node node;
  node.op = std::move(op);
  node.sources.assign(ports, 0);
  node.sourceOutputs.assign(ports, 0);
  node.name = std::move(name);
  const std::uint32_t id = nextId_++;
  byId_.resize(nextId_);
  byId_[id] = &nodes_.emplace(id, std::move(node)).first->second;
  return id;
}

void Graph::removeNode(std::uint32_t id) {
  node(id);
  for (auto& [otherId, other] : nodes_) {
    for (std::size_t slot = 0; slot < other.sources.size(); ++slot) {
      if (other.sources[slot] != id) continue;
      other.sources[slot] = 0;
      other.sourceOutputs[slot] = 0;
    }
  }
  byId_[id] = nullptr;
  nodes_.erase(id);
  reports.erase(id);
}

Node& Graph::node(std::uint32_t id) {
  return const_cast<Node&>(std::as_const(*this).node(id));
}

const Node& Graph::node(std::uint32_t id) const {
  if (id >= byId_.size() || byId_[id] == nullptr) {
    throw GraphError("unknown node " + std::to_string(id));
  }
  return *byId_[id];
}

std::uint32_t Graph::findNode(std::string_view name) const {
  for (const auto& [id, node] : nodes_) {
    if (node.name == name) return id;
  }
  return 0;
}

std::vector<PortSpec> Graph::inputPorts(const Node& node) const {
  std::vector<PortSpec> ports = node.op->inputs();
  for (const std::string& name : node.paramInputs) {
    const ParamSpec* spec = node.op->parameters.declarations().find(name);
    const bool isRamp = spec && kindOf(spec->defaultValue) == ParamKind::ramp;
    ports.push_back({name, isRamp ? PortType::curve : PortType::field, true});
  }
  return ports;
}

PortType Graph::resolvedOutputType(std::uint32_t id, std::size_t output) const {
  return WireTypes(*this).output(id, output);
}

bool Graph::isRead(std::uint32_t id) const {
  return std::any_of(nodes_.begin(), nodes_.end(), [id](const auto& entry) {
    const std::vector<std::uint32_t>& sources = entry.second.sources;
    return std::find(sources.begin(), sources.end(), id) != sources.end();
  });
}

bool Graph::isUpstream(std::uint32_t wanted, std::uint32_t from) const {
  std::vector<bool> visited(byId_.size(), false);
  std::vector<std::uint32_t> waiting{from};
  while (!waiting.empty()) {
    const std::uint32_t id = waiting.back();
    waiting.pop_back();
    if (id == wanted) return true;
    if (id < visited.size() && visited[id]) continue;
    const Node& upstream = node(id);
    visited[id] = true;
    for (const std::uint32_t source : upstream.sources) {
      if (source != 0) waiting.push_back(source);
    }
  }
  return false;
}

void Graph::connect(std::uint32_t from, std::uint32_t to, std::size_t inputSlot,
                    std::size_t outputSlot) {
  const PortType wanted = checkSlots(from, to, inputSlot, outputSlot);
  WireTypes types(*this);
  types.check(from, outputSlot, wanted);
  if (isUpstream(to, from)) throw GraphError("connection would create a cycle");
  if (inputSlot == 0 && isRead(to)) {
    // What comes in may come out again and go where it does not fit.
    types.assumeFirstInput(to, types.output(from, outputSlot));
    types.checkAll();
  }
  setWire(from, to, inputSlot, outputSlot);
}

PortType Graph::checkSlots(std::uint32_t from, std::uint32_t to, std::size_t inputSlot,
                           std::size_t outputSlot) const {
  const Node& source = node(from);
  const Node& target = node(to);
  const std::vector<PortSpec> ports = inputPorts(target);
  if (inputSlot >= ports.size()) {
    throw GraphError(target.op->type() + " has no input slot " + std::to_string(inputSlot));
  }
  if (outputSlot >= source.op->outputs().size()) {
    throw GraphError(source.op->type() + " has no output " + std::to_string(outputSlot));
  }
  return ports[inputSlot].type;
}

void Graph::setWire(std::uint32_t from, std::uint32_t to, std::size_t inputSlot,
                    std::size_t outputSlot) {
  Node& target = node(to);
  const std::size_t ports = target.op->inputs().size() + target.paramInputs.size();
  if (target.sources.size() < ports) {
    target.sources.resize(ports, 0);
    target.sourceOutputs.resize(ports, 0);
  }
  target.sources[inputSlot] = from;
  target.sourceOutputs[inputSlot] = outputSlot;
}

bool Graph::hasCycle() const {
  // Nodes are done once all that feeds them is; those on a cycle never are.
  std::vector<std::size_t> waitingFor(byId_.size(), 0);
  std::vector<std::vector<std::uint32_t>> readers(byId_.size());
  std::vector<std::uint32_t> ready;
  for (const auto& [id, node] : nodes_) {
    for (const std::uint32_t source : node.sources) {
      if (source == 0) continue;
      readers[source].push_back(id);
      ++waitingFor[id];
    }
    if (waitingFor[id] == 0) ready.push_back(id);
  }
  std::size_t done = 0;
  for (; !ready.empty(); ++done) {
    const std::uint32_t id = ready.back();
    ready.pop_back();
    for (const std::uint32_t reader : readers[id]) {
      if (--waitingFor[reader] == 0) ready.push_back(reader);
    }
  }
  return done < nodes_.size();
}

void Graph::disconnect(std::uint32_t to, std::size_t inputSlot) {
  Node& target = node(to);
  if (inputSlot >= inputPorts(target).size()) {
    throw GraphError(target.op->type() + " has no input slot " + std::to_string(inputSlot));
  }
  if (inputSlot >= target.sources.size()) return;
  target.sources[inputSlot] = 0;
  target.sourceOutputs[inputSlot] = 0;
}

void Graph::setParamInputs(std::uint32_t id, std::vector<std::string> names) {
  Node& target = node(id);
  const std::vector<PortSpec> inputs = target.op->inputs();
  const std::string type = target.op->type();
  for (auto name = names.begin(); name != names.end(); ++name) {
    if (target.op->parameters.declarations().find(*name) == nullptr) {
      throw GraphError(type + " has no param '" + *name + "' to expose");
    }
    if (std::any_of(inputs.begin(), inputs.end(),
                    [&](const PortSpec& port) { return port.name == *name; })) {
      throw GraphError("param '" + *name + "' has the name of an input of " + type);
    }
    if (std::find(names.begin(), name, *name) != name) {
      throw GraphError("param '" + *name + "' exposed twice");
    }
  }
  std::vector<std::uint32_t> sources(inputs.size() + names.size(), 0);
  std::vector<std::uint64_t> outputs(sources.size(), 0);
  const auto keep = [&](std::size_t oldSlot, std::size_t newSlot) {
    if (oldSlot >= target.sources.size()) return;
    sources[newSlot] = target.sources[oldSlot];
    outputs[newSlot] = target.sourceOutputs[oldSlot];
  };
  for (std::size_t slot = 0; slot < inputs.size(); ++slot) keep(slot, slot);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto old = std::find(target.paramInputs.begin(), target.paramInputs.end(), names[i]);
    if (old == target.paramInputs.end()) continue;
    keep(inputs.size() + static_cast<std::size_t>(old - target.paramInputs.begin()),
         inputs.size() + i);
  }
  target.sources = std::move(sources);
  target.sourceOutputs = std::move(outputs);
  target.paramInputs = std::move(names);
}

void Graph::setParamControls(std::uint32_t id,
                             std::map<std::string, std::vector<std::string>> controls) {
  Node& target = node(id);
  for (const auto& [name, keys] : controls) {
    const std::string param = " param '" + name + "'";
    const ParamSpec* spec = target.op->parameters.declarations().find(name);
    if (spec == nullptr) throw GraphError(target.name + " has no param '" + name + "' to key");
    const std::string start = target.name + param;
    if (!spec->animatable) {
      throw GraphError(start +
                       " cannot be keyed: it sets how many strands, points or cards there are, or "
                       "where they go, which must stay the same on every frame");
    }
    const ParamKind kind = kindOf(spec->defaultValue);
    if (kind != ParamKind::boolean && kind != ParamKind::integer && kind != ParamKind::number &&
        kind != ParamKind::vec3) {
      throw GraphError(start + " cannot be keyed: only numbers, switches and vectors can");
    }
    const bool isVector = kind == ParamKind::vec3;
    if (keys.size() != (isVector ? 3 : 1)) {
      throw GraphError(start + " is keyed by " +
                       (isVector ? "three controls (x, y, z)" : "one control"));
    }
    if (std::any_of(keys.begin(), keys.end(), [](const auto& key) { return key.empty(); })) {
      throw GraphError(start + ": a control needs a name");
    }
  }
  target.op->parameters.clearKeys();
  target.paramControls = std::move(controls);
}

}  // namespace kestrane
