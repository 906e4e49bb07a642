// File nodes made from any answer of a daemon.
#include "Common/nodes/FileNode.h"

#include "fuzz/plist/PropertyLists.h"
#include "platform/objects/Exceptions.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

using Node = KeldaneFileNode;

constexpr const char* kKeys[] = {"fileName", "displayName", "size",     "backupDate", "version",  "state",
                                 "path",     "count",       "selected", "uidString",  "purgeDate"};

Node::Pointer nodeOf(const PropertyList& dictionary) {
  const Node::Pointer node = Node::create();
  node->initWithDictionary(dictionary);
  return node;
}

void checkText(Node& node) {
  require(node.description().size() < 8 * kLongestDescription, "a description has an end");
  require(!node.backupFlagsString().empty() && !node.simpleFlagsString().empty(), "flags have a text");
  require(!node.uidString().empty() && !node.gidString().empty(), "an owner has a name");
}

void checkSelection(Node& node) {
  node.setSelected(1);
  const std::vector<Node::Pointer> expanded = node.selectedChildren(true);
  require(node.selectedChildren(false).size() <= expanded.size() + node.count(),
          "folders hold what they expand to");
  for (const Node::Pointer& found : node.deepestFullSelections()) {
    require(found->selected() == 1, "a full selection is one");
    found->setSelected(0);
    require(found->parent()->selected() != 1 || found->parent()->count() == 0, "a change climbs");
  }
  node.setSelected(0);
  require(node.selected() == 0 && node.selectedChildren(true).empty(), "nothing stays selected");
}

void checkSorting(Node& node, Input& input) {
  const std::uint32_t count = node.count();
  const std::vector<SortDescriptor> descriptors = {
      {kKeys[input.below(std::size(kKeys))], input.number() % 2 == 0},
      {kKeys[input.below(std::size(kKeys))], true, localizedCompare}};
  node.sortUsingDescriptors(descriptors);
  const PropertyList sorted = node.recursiveDictionary();
  require(node.count() == count, "sorting keeps every child");
  node.sortUsingDescriptors(descriptors);
  require(node.recursiveDictionary().identical(sorted), "what is sorted stays as it is");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t choice = input.number();
  Input choices(&choice, 1);
  const PropertyList answer = choice % 2 == 0
                                  ? input.value()
                                  : PropertyListSerialization::propertyListFromData(input.rest(), nullptr);
  const Node::Pointer node = nodeOf(answer);
  const PropertyList dictionary = node->recursiveDictionary();
  require(nodeOf(dictionary)->recursiveDictionary().identical(dictionary), "a node is its dictionary");
  require(node->dictionary()["children"].isAbsent(), "a dictionary is that of one node");
  checkText(*node);
  checkSelection(*node);
  checkSorting(*node, choices);
  const Node::Pointer copy = node->copy();
  require(copy->count() == node->count() && copy->backupFlags() == 0,
          "a copy has the children, and no flags");
  require(node->path().has_value() || node->nodeAtPath("/") == node, "a root leads to itself");
  // A pointer to a child keeps its parents alive.
  const Node::Pointer child = node->count() > 0 ? (*node->children())[node->count() - 1].pointer() : nullptr;
  require(!child || child->root() == node, "a child leads to its root");
  node->sizeValue();
  node->flush();
  return 0;
}
