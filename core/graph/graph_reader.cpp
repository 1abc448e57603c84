// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <exception>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "core/base/errors.h"
#include "core/base/json.h"
#include "core/base/text.h"
#include "core/graph/graph_document.h"
#include "core/graph/graph_migration.h"
#include "core/graph/operator_registry.h"
#include "core/graph/wire_types.h"

namespace kestrane {

namespace {

std::string shown(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// The text under a key; null where there is none or it is no text.
const std::string* textAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : found->get_ptr<const std::string*>();
}

/// The list under a key; empty where there is none.
const Json& listAt(const Json& document, const char* key) {
  static const Json none = Json::array();
  const auto found = document.find(key);
  if (found == document.end()) return none;
  if (!found->is_array()) {
    throw GraphError("graph JSON: '" + std::string(key) + "' must be a list");
  }
  return *found;
}

/// The texts of a list; false if it is no list or holds anything else.
bool readTexts(const Json& json, std::vector<std::string>& texts) {
  if (!json.is_array()) return false;
  for (const Json& item : json) {
    if (!item.is_string()) return false;
    texts.push_back(item.get<std::string>());
  }
  return true;
}

/// The version that the node was written with, brought up to date where there are steps for it.
int readNodeVersion(Json& node, const std::string& label, const Operator& op) {
  const auto found = node.find("version");
  if (found == node.end()) return op.version();
  const bool isWhole = found->is_number_integer() &&
                       (found->is_number_unsigned() || found->get<std::int64_t>() >= 1) &&
                       *found != 0;
  if (!isWhole) {
    throw SchemaError(label + ": version " + shown(*found) + " is not a whole number from 1");
  }
  if (found->get<std::uint64_t>() > static_cast<std::uint64_t>(op.version())) {
    throw SchemaError(label + " is a " + op.type() + " of version " + shown(*found) +
                      ", newer than this Kestrane's (" + std::to_string(op.version()) +
                      "); update Kestrane to open it");
  }
  return migrateNode(node, op.type(), found->get<int>(), op.version(), migrationSteps());
}

void readParams(const Json& node, const std::string& label, Operator& op) {
  const auto found = node.find("params");
  if (found == node.end()) return;
  if (!found->is_object()) throw GraphError(label + ": params must be an object");
  for (const auto& [name, value] : found->items()) {
    op.parameters.set(name, paramValueFromJson(name, value));
  }
}

std::map<std::string, std::vector<std::string>> readControls(const Json& json,
                                                             const std::string& label) {
  if (!json.is_object()) throw GraphError(label + ": paramControls must map params to controls");
  std::map<std::string, std::vector<std::string>> controls;
  for (const auto& [name, value] : json.items()) {
    std::vector<std::string> names;
    if (value.is_string()) {
      names.push_back(value.get<std::string>());
    } else if (!readTexts(value, names)) {
      throw GraphError(label + ": param '" + name +
                       "' must name its control (or three for a vector)");
    }
    controls.emplace(name, std::move(names));
  }
  return controls;
}

double readPosition(const Json& ui, const char* axis, const std::string& label) {
  const auto found = ui.is_object() ? ui.find(axis) : ui.end();
  if (ui.is_object() && found == ui.end()) return 0.0;
  if (!ui.is_object() || !found->is_number()) {
    throw GraphError(label + ": ui must be an object with the numbers x and y");
  }
  return found->get<double>();
}

std::size_t portNamed(const std::vector<PortSpec>& ports, const std::string& name) {
  const auto found = std::find_if(ports.begin(), ports.end(),
                                  [&](const PortSpec& port) { return port.name == name; });
  return static_cast<std::size_t>(found - ports.begin());
}

}  // namespace

/// Builds a document step by step; it is handed out only when it is whole.
class GraphReader {
 public:
  GraphDocument read(const Json& json) {
    if (!json.is_object()) throw GraphError("graph JSON must be an object");
    checkVersion(json, "graph", graphVersion);
    for (const Json& node : listAt(json, "nodes")) readNode(node);
    if (const auto found = json.find("backdrops"); found != json.end()) {
      document_.backdrops = shown(*found);
    }
    readConnections(listAt(json, "connections"));
    const std::string* output = textAt(json, "output");
    if (output == nullptr) throw GraphError("graph JSON has no 'output' node");
    document_.output = idOf(*output);
    return std::move(document_);
  }

 private:
  void readNode(const Json& original) {
    const std::string place = "graph JSON: node " + std::to_string(ids_.size() + 1);
    if (!original.is_object()) throw GraphError(place + " must be an object");
    const std::string* name = textAt(original, "name");
    if (name == nullptr || name->empty()) throw GraphError(place + " needs a name");
    const std::string label = "node '" + *name + "'";
    const std::string* type = textAt(original, "type");
    if (type == nullptr) throw GraphError(label + " needs a type");
    std::unique_ptr<Operator> op = OperatorRegistry::instance().create(*type);
    if (ids_.count(*name)) throw GraphError("duplicate node name '" + *name + "'");

    Json json = original;
    op->nodeVersion = readNodeVersion(json, label, *op);
    readParams(json, label, *op);
    if (const auto found = json.find("definition"); found != json.end()) op->setDefinition(*found);
    const std::uint32_t id = document_.graph.insertNode(std::move(op), *name);
    ids_.emplace(*name, id);
    readSettings(json, label, id);
  }

  void readSettings(const Json& json, const std::string& label, std::uint32_t id) {
    Graph& graph = document_.graph;
    Node& node = graph.node(id);
    if (const auto found = json.find("paramInputs"); found != json.end()) {
      std::vector<std::string> names;
      if (!readTexts(*found, names)) {
        throw GraphError(label + ": paramInputs must be a list of params");
      }
      graph.setParamInputs(id, std::move(names));
    }
    if (const auto found = json.find("paramControls"); found != json.end()) {
      graph.setParamControls(id, readControls(*found, label));
    }
    if (const auto found = json.find("bypass"); found != json.end()) {
      if (!found->is_boolean()) throw GraphError(label + ": bypass must be true or false");
      node.bypass = found->get<bool>();
    }
    if (json.contains("evaluation")) {
      const std::string* word = textAt(json, "evaluation");
      try {
        if (word == nullptr) throw GraphError("no word");
        node.evaluation = nodeEvaluationFromWord(*word);
      } catch (const GraphError&) {
        throw GraphError(label + ": evaluation is always, viewportOnly or renderOnly");
      }
    }
    if (const auto found = json.find("ui"); found != json.end()) {
      node.uiX = readPosition(*found, "x", label);
      node.uiY = readPosition(*found, "y", label);
    }
  }

  struct Wire {
    std::uint32_t from, to;
    std::size_t input, output;
    PortType wanted;  // by the input
  };

  void readConnections(const Json& list) {
    std::vector<Wire> wires;
    std::exception_ptr failure;
    for (const Json& json : list) {
      try {
        wires.push_back(readConnection(json));
      } catch (const GraphError&) {
        failure = std::current_exception();
        break;
      }
    }
    connectAll(wires);
    if (failure) std::rethrow_exception(failure);
  }

  /// What connecting one after the other comes to, whatever their order; but the checks are made
  /// once for all, since each of them may take a walk over the whole graph.
  void connectAll(std::span<const Wire> wires) {
    std::size_t good = wires.size();
    setWires(wires);
    const bool isCyclic = document_.graph.hasCycle();
    if (isCyclic) {
      // The wires up to the one that closes a cycle, by halving.
      std::size_t bad = std::exchange(good, 0);
      while (bad - good > 1) {
        const std::size_t middle = good + (bad - good) / 2;
        setWires(wires.first(middle));
        (document_.graph.hasCycle() ? bad : good) = middle;
      }
      setWires(wires.first(good));
    }
    WireTypes types(document_.graph);
    for (const Wire& wire : wires.first(isCyclic ? good + 1 : good)) {
      types.check(wire.from, wire.output, wire.wanted);
    }
    if (isCyclic) throw GraphError("connection would create a cycle");
  }

  /// Of two wires into one input the last stands.
  void setWires(std::span<const Wire> wires) {
    document_.graph.forEachNode(
        [](std::uint32_t, Node& node) { std::fill(node.sources.begin(), node.sources.end(), 0u); });
    for (const Wire& wire : wires) {
      document_.graph.setWire(wire.from, wire.to, wire.input, wire.output);
    }
  }

  Wire readConnection(const Json& json) const {
    const std::string* from = json.is_object() ? textAt(json, "from") : nullptr;
    const std::string* to = json.is_object() ? textAt(json, "to") : nullptr;
    const std::string* input = json.is_object() ? textAt(json, "input") : nullptr;
    if (from == nullptr || to == nullptr || input == nullptr) {
      throw GraphError("graph JSON: a connection needs from, to and input, each a name");
    }
    const Graph& graph = document_.graph;
    const std::uint32_t fromId = idOf(*from), toId = idOf(*to);
    const std::vector<PortSpec> ports = graph.inputPorts(graph.node(toId));
    const std::size_t slot = portNamed(ports, *input);
    if (slot == ports.size()) throw GraphError(*to + " has no input '" + *input + "'");
    std::size_t outputSlot = 0;
    if (json.contains("output")) {
      const std::vector<PortSpec> outputs = graph.node(fromId).op->outputs();
      const std::string* output = textAt(json, "output");
      outputSlot = output ? portNamed(outputs, *output) : outputs.size();
      if (outputSlot == outputs.size()) {
        throw GraphError(*from + " has no output '" + (output ? *output : shown(json["output"])) +
                         "'");
      }
    }
    graph.checkSlots(fromId, toId, slot, outputSlot);
    return {fromId, toId, slot, outputSlot, ports[slot].type};
  }

  std::uint32_t idOf(const std::string& name) const {
    const auto found = ids_.find(name);
    if (found == ids_.end()) throw GraphError("unknown node '" + name + "'");
    return found->second;
  }

  GraphDocument document_;
  std::map<std::string, std::uint32_t> ids_;
};

GraphDocument graphFromJson(const Json& json) {
  return GraphReader().read(json);
}

GraphDocument graphFromJson(std::string_view text) {
  text = trimmed(text);
  if (text.empty()) throw GraphError("graph JSON must be an object");
  Json json;
  try {
    json = parseJson(text);
  } catch (const GraphError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw GraphError("graph JSON: " + std::string(error.what()));
  }
  return graphFromJson(json);
}

}  // namespace kestrane
