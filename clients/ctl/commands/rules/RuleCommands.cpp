#include <unistd.h>

#include <cerrno>
#include <iostream>

#include "Common/nodes/FileNode.h"
#include "clients/core/FolderTree.h"
#include "clients/core/words/Printable.h"
#include "clients/ctl/commands/Commands.h"
#include "platform/text/Translation.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

using Node = KeldaneFileNode;

enum class Wish { include, exclude, prefer, inherit };

struct PathCommand {
  const char* name;
  const char* description;
  Wish wish;
};

constexpr PathCommand kPathCommands[] = {
    {"add", marked("Back these files and folders up"), Wish::include},
    {"remove", marked("Do not back these files and folders up"), Wish::exclude},
    {"asap", marked("Back these files up before all others"), Wish::prefer},
    {"inherit", marked("Take back what add or remove said of these: their folder's rule is theirs again"),
     Wish::inherit},
};

/// The meaning of the daemon's error number for a change of a rule.
std::string reasonFor(std::uint32_t error) {
  switch (error) {
    case EPERM:
      return tr("the policy keeps it out of the backup");
    case EACCES:
    case EINVAL:
      return tr("only root, the daemon's own user and its owner may change its rule");
    case ENOENT:
      return tr("nothing is there");
    case ENOSPC:
      return tr("it keeps as many rules as it can already");
    case EIO:
      return tr("it cannot write to its store; perhaps the disk is full");
    default:
      return filled(tr("error %s"), std::to_string(error));
  }
}

class RuleChange {
 public:
  RuleChange(Session& session, const std::string& path) : session_(session), path_(path) { look(); }

  /// Makes the change. Returns a sentence when the daemon has not accepted it, otherwise an empty string.
  std::string make(Wish wish) {
    if (!isValidUtf8(path_) || (!node_ && wish != Wish::inherit)) {
      return nothingKnownOf(path_) + (isValidUtf8(path_) ? std::string(" ") + tr("No rule was made.") : "");
    }
    switch (wish) {
      case Wish::include:
        session_.state().addFileToBackup(path_);
        look();
        return has(backup_flags::kInclude | backup_flags::kFolderInclude) ? "" : notTaken();
      case Wish::exclude:
        return changed(session_.proxy()->excludeFileFromBackup(path_));
      case Wish::prefer:
        return prefer();
      case Wish::inherit:
        return changed(session_.proxy()->unexcludeFileFromBackup(path_));
    }
    return {};
  }

  std::string state() const {
    return node_ ? daemonWords(node_->state()) : tr("Nothing is there, and no rule is about it");
  }

 private:
  void look() {
    node_ = isValidUtf8(path_) ? Node::fileNodeForPath(path_, session_.proxy().get()) : nullptr;
    session_.checkDaemon();
  }

  bool has(std::uint32_t flags) const { return node_ && (node_->backupFlags() & flags) != 0; }

  bool isStored() const { return static_cast<BackupColor>(node_->backupColor()) == BackupColor::green; }

  std::string prefer() {
    if (node_->isDirectory()) {
      return filled(tr("%s is a folder. Only a file can be put before all others."), printable(path_));
    }
    if (!has(backup_flags::kBackup)) {
      session_.state().addFileToBackup(path_);
    }
    session_.state().setPriorityBackup(path_);
    look();
    if (!has(backup_flags::kBackup)) {
      return notTaken();
    }
    return node_->backupPriority() != 0 || isStored()
               ? ""
               : filled(tr("%s was not put before the others: %s."), printable(path_), state());
  }

  std::string changed(std::uint32_t error) {
    look();
    return error == 0 ? "" : notTakenBecause(reasonFor(error));
  }

  std::string notTakenBecause(const std::string& reason) const {
    return filled(tr("The daemon did not take %s: %s."), printable(path_), reason);
  }

  std::string notTaken() const {
    if (!node_ || has(backup_flags::kSystem)) {
      return notTakenBecause(state());
    }
    return notTakenBecause(reasonFor(session_.mayChangeAll() || node_->uid() == geteuid() ? EIO : EACCES));
  }

  Session& session_;
  const std::string path_;
  Node::Pointer node_;
};

void changeRules(Globals& globals, const PathCommand& which, const std::vector<std::string>& given) {
  std::vector<std::string> paths;
  paths.reserve(given.size());
  for (const std::string& path : given) {
    paths.push_back(pathNamed(path));  // all paths are resolved before anything is changed
  }
  Session session(globals);
  session.requireDaemon();
  for (const std::string& path : paths) {
    session.renewDeadline();
    RuleChange change(session, path);
    const std::string problem = change.make(which.wish);
    if (problem.empty()) {
      std::cout << printable(path) << ": " << change.state() << '\n';
    } else {
      complain(problem);
      globals.status = kNotTaken;
    }
  }
}

}  // namespace

void addRuleCommands(CLI::App& app, Globals& globals) {
  for (const PathCommand& which : kPathCommands) {
    CLI::App* command = app.add_subcommand(which.name, tr(which.description));
    auto paths = std::make_shared<std::vector<std::string>>();
    command->add_option("PATH", *paths, tr("Files and folders"))->required();
    command->callback([&globals, &which, paths] { changeRules(globals, which, *paths); });
  }
}

}  // namespace keldane
