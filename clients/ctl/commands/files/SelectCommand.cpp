#include <algorithm>
#include <iostream>

#include "cli/Json.h"
#include "clients/core/FolderTree.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/layout/NodeColumns.h"
#include "clients/ctl/layout/Text.h"
#include "platform/files/Path.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

using Node = KeldaneFileNode;

struct SelectOptions {
  std::vector<std::string> paths, without;
  bool deepest = false, topmost = false, files = false;
  bool json = false, null = false;
};

/// The deepest folder that holds all paths; the parent folder for a single path.
std::string folderAround(const std::vector<std::string>& paths) {
  std::vector<std::string> common = pathComponents(paths.front());
  common.resize(std::max<std::size_t>(1, common.size() - 1));
  for (const std::string& path : paths) {
    const std::vector<std::string> components = pathComponents(path);
    const std::size_t most = std::max<std::size_t>(1, components.size() - 1);
    common.resize(std::min(common.size(), most));
    common.erase(std::mismatch(common.begin(), common.end(), components.begin()).first, common.end());
  }
  std::string folder;
  for (const std::string& component : common) {
    folder = appendPathComponent(folder, component);
  }
  return folder;
}

class Selection {
 public:
  Selection(Globals& globals, const SelectOptions& options)
      : globals_(globals), options_(options), session_(globals) {
    for (const std::string& path : options.paths) {
      paths_.push_back(pathNamed(path));
    }
    session_.requireDaemon();
    root_ = folderAt(folderAround(paths_), session_.proxy());
    if (const Node::Pointer known = Node::fileNodeForPath(*root_->path(), session_.proxy().get())) {
      root_->setBackupFlags(known->backupFlags());
      root_->setBackupColor(known->backupColor());
    }
  }

  void print() {
    // All nodes that take part are loaded first, because a selection spreads to loaded nodes only, and a
    // folder's state is derived from all its children.
    std::vector<Node::Pointer> selected, excluded;
    for (const std::string& path : paths_) {
      addTo(selected, path);
    }
    for (const std::string& path : options_.without) {
      addTo(excluded, pathNamed(path));
    }
    if (options_.deepest || options_.files) {
      for (const Node::Pointer& node : selected) {
        loadAll(node, session_.proxy(), [this] { session_.renewDeadline(); });
      }
    }
    session_.checkDaemon();
    for (const Node::Pointer& node : selected) {
      node->setSelected(1);
      if (node->selected() != 1) {
        complain(filled(tr("%s was never backed up and cannot be selected."), printable(*node->path())));
        globals_.status = kNotTaken;
      }
    }
    for (const Node::Pointer& node : excluded) {
      node->setSelected(0);
    }
    std::vector<Node::Pointer> result =
        options_.deepest ? root_->deepestFullSelections() : root_->selectedChildren(options_.files);
    if (options_.json) {
      printJson(result);
    } else {
      for (const Node::Pointer& node : result) {
        std::cout << (terminal_.isTerminal() ? coloredName(*node->path(), *node, terminal_) : *node->path())
                  << (options_.null ? '\0' : '\n');
      }
    }
  }

 private:
  void addTo(std::vector<Node::Pointer>& nodes, const std::string& path) {
    session_.renewDeadline();
    const std::string root = *root_->path();
    const bool isThere = path == root || path.starts_with(root == "/" ? root : root + '/');
    const Node::Pointer node = isThere ? loadPath(root_, path, session_.proxy()) : nullptr;
    if (node) {
      nodes.push_back(node);
    } else {
      complain(isThere ? nothingKnownOf(path)
                       : filled(tr("%s is not among what could be selected."), printable(path)));
      globals_.status = kNotTaken;
    }
  }

  static void printJson(const std::vector<Node::Pointer>& nodes) {
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (const Node::Pointer& node : nodes) {
      array.push_back(nodeJson(*node));
    }
    std::cout << jsonLine(array) << '\n';
  }

  Globals& globals_;
  const SelectOptions options_;
  const Terminal terminal_;
  Session session_;
  std::vector<std::string> paths_;
  Node::Pointer root_;
};

}  // namespace

void addSelectCommand(CLI::App& app, Globals& globals) {
  CLI::App* command = app.add_subcommand(
      "select",
      tr("Choose files and folders as for a restore, and print the set that the choice comes down to"));
  auto options = std::make_shared<SelectOptions>();
  command->add_option("PATH", options->paths, tr("What to select, with everything in it"))->required();
  command->add_option("--not", options->without, tr("What to leave out of it"))
      ->type_name("PATH")
      ->allow_extra_args(false);
  CLI::Option_group* form = command->add_option_group(tr("Which set"));
  form->add_flag("--topmost", options->topmost,
                 tr("The topmost of what is wholly selected (unless told otherwise)"));
  form->add_flag("--deepest", options->deepest, tr("Its files, and the deepest of its folders"));
  form->add_flag("--files", options->files, tr("Every file in it"));
  form->require_option(0, 1);
  command->add_flag("-0,--null", options->null,
                    tr("A NUL after each path instead of a new line, for xargs -0"));
  command->add_flag("--json", options->json, tr("Print JSON instead of text"));
  command->callback([&globals, options] { Selection(globals, *options).print(); });
}

}  // namespace keldane
