#include <algorithm>
#include <iostream>
#include <limits>

#include "cli/Json.h"
#include "cli/NumberRange.h"
#include "clients/core/FolderTree.h"
#include "clients/core/words/Printable.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/NodeColumns.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

using Node = KeldaneFileNode;
using Json = nlohmann::ordered_json;

struct ListOptions {
  std::string path = ".";
  bool recursive = false;
  bool json = false;
  bool flags = false;
  int depth = std::numeric_limits<int>::max();
};

/// A JSON array of any length, with one element a line.
class JsonArray {
 public:
  JsonArray() { std::cout << '['; }
  ~JsonArray() { std::cout << (empty_ ? "]\n" : "\n]\n"); }
  JsonArray(const JsonArray&) = delete;
  JsonArray& operator=(const JsonArray&) = delete;
  void add(const Json& element) {
    std::cout << (empty_ ? "\n" : ",\n") << jsonLine(element);
    empty_ = false;
  }

 private:
  bool empty_ = true;
};

class Listing {
 public:
  Listing(const Globals& globals, const ListOptions& options) : options_(options), session_(globals) {
    session_.requireDaemon();
    style_.allFlags = options.flags;
    // The last column stays free: a character there would begin the next line on some terminals.
    style_.columns =
        terminal_.isTerminal() ? static_cast<std::size_t>(std::max(2, terminal_.width())) - 1 : 0;
    const std::string path = askablePath(options.path);
    top_ = Node::fileNodeForPath(path, session_.proxy().get());
    session_.checkDaemon();
    if (!top_) {
      throw CommandFailure(kNotTaken, nothingKnownOf(path));
    }
  }

  void list() {
    if (!top_->isDirectory()) {
      if (options_.json) {
        JsonArray().add(nodeJson(*top_));
      } else {
        printRow(*top_, *top_->path());
      }
    } else if (options_.json) {
      JsonArray array;
      walk([](Node&) {}, [&](Node& node) { array.add(nodeJson(node)); });
    } else {
      bool first = true;
      walk(
          [&](Node& folder) {
            if (options_.recursive) {
              std::cout << (first ? "" : "\n") << terminal_.bold(printable(*folder.path())) << ":\n";
              first = false;
            }
          },
          [&](Node& node) { printRow(node, node.fileName().description()); });
    }
  }

  void tree() {
    if (options_.json) {
      std::cout << jsonLine(treeJson()) << '\n';
    } else {
      printTree();
    }
  }

 private:
  /// Loads a folder's children, sorted by name. A folder's nodes are freed after it was listed, so the memory
  /// in use is that of one folder and of the folders above it.
  void load(const Node::Pointer& folder) {
    session_.renewDeadline();
    loadChildren(folder, session_.proxy());
    addNamesThatAreNoText(folder);
    session_.checkDaemon();
    folder->sortUsingDescriptors({{"fileName"}});
  }

  template <class OnFolder, class OnNode>
  void walk(const OnFolder& onFolder, const OnNode& onNode) {
    std::vector<Node::Pointer> folders = {top_};
    while (!folders.empty() && std::cout) {
      const Node::Pointer folder = std::move(folders.back());
      folders.pop_back();
      load(folder);
      onFolder(*folder);
      if (const Node::ChildList* children = folder->children()) {
        for (Node& node : *children) {
          onNode(node);
        }
      }
      if (options_.recursive) {
        std::vector<Node::Pointer> below;
        for (const Node::Pointer& child : foldersIn(folder)) {
          below.push_back(folderAt(*child->path(), session_.proxy()));
          below.back()->setBackupFlags(child->backupFlags());
          below.back()->setBackupColor(child->backupColor());
        }
        folders.insert(folders.end(), below.rbegin(), below.rend());
      }
    }
  }

  void printRow(Node& node, const std::string& name, const std::string& lead = {}) {
    std::cout << row(node, lead, name, style_, terminal_) << '\n';
  }

  void printTree() {
    struct Place {
      Node::Pointer folder;
      std::size_t index;
      std::string indent;
    };
    const bool boxes = Terminal::hasBoxes();
    printRow(*top_, *top_->path());
    std::vector<Place> places;
    const auto enter = [&](const Node::Pointer& folder, const std::string& indent) {
      if (folder->isDirectory() && places.size() < static_cast<std::size_t>(options_.depth)) {
        load(folder);
        places.push_back({folder, 0, indent});
      }
    };
    enter(top_, "");
    while (!places.empty() && std::cout) {
      Place& place = places.back();
      const Node::ChildList* children = place.folder->children();
      if (children == nullptr || place.index == children->size()) {
        place.folder->flush();
        places.pop_back();
        continue;
      }
      Node& node = (*children)[place.index++];
      const bool last = place.index == children->size();
      printRow(node, node.fileName().description(),
               place.indent + (boxes ? (last ? "└── " : "├── ") : (last ? "`-- " : "|-- ")));
      if (canBeEntered(*place.folder, node)) {
        enter(node.pointer(), place.indent + (last ? "    " : boxes ? "│   " : "|   "));
      }
    }
  }

  Json treeJson() {
    struct Place {
      Node::Pointer folder;
      Json json;
      std::size_t index;
    };
    std::vector<Place> places;
    const auto enter = [&](const Node::Pointer& node, bool asFolder) {
      places.push_back({node, nodeJson(*node), 0});
      if (asFolder && places.size() <= static_cast<std::size_t>(options_.depth)) {
        load(node);
        places.back().json["children"] = Json::array();
      }
    };
    enter(top_, top_->isDirectory());
    for (;;) {
      Place& place = places.back();
      const Node::ChildList* children = place.folder->children();
      if (children != nullptr && place.index < children->size()) {
        Node& node = (*children)[place.index++];
        enter(node.pointer(), canBeEntered(*place.folder, node));
        continue;
      }
      Json done = std::move(place.json);
      place.folder->flush();
      places.pop_back();
      if (places.empty()) {
        return done;
      }
      places.back().json["children"].push_back(std::move(done));
    }
  }

  const ListOptions options_;
  const Terminal terminal_;
  RowStyle style_;
  Session session_;
  Node::Pointer top_;
};

void addCommonOptions(CLI::App& command, const std::shared_ptr<ListOptions>& options) {
  command.add_option("PATH", options->path, tr("The folder; the working directory when absent"));
  command.add_flag("--flags", options->flags, tr("Print the daemon's flags in full too"));
  command.add_flag("--json", options->json, tr("Print JSON instead of text"));
  command.footer(tr(
      "The letters: d folder, s selected for the backup, b backed up, + included and x excluded by a rule\n"
      "of its own, p barred by the policy, m deleted here and still in the backup, and the priority."));
}

}  // namespace

void addListCommands(CLI::App& app, Globals& globals) {
  auto options = std::make_shared<ListOptions>();
  CLI::App* command = app.add_subcommand("ls", tr("List a folder as the daemon sees it"));
  addCommonOptions(*command, options);
  command->add_flag("-R,--recursive", options->recursive, tr("The folders in it too"));
  command->callback([&globals, options] { Listing(globals, *options).list(); });

  command = app.add_subcommand("tree", tr("Show a folder and what is below it as the daemon sees it"));
  addCommonOptions(*command, options);
  command->add_option("--depth", options->depth, tr("How many levels"))
      ->type_name("N")
      ->check(numberFrom(1, 1'000'000));
  command->callback([&globals, options] { Listing(globals, *options).tree(); });
}

}  // namespace keldane
