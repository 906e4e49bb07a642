#include "tests/tools/faults/campaign/CampaignHost.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "Common/nodes/FileNode.h"
#include "platform/host/Host.h"
#include "platform/syslog/SystemLog.h"
#include "tests/support/Wait.h"

namespace keldane::testing {

namespace {

constexpr std::array<const char*, 3> kStandings = {"left out", "included", "preferred"};
constexpr std::string_view kBackedUp = "Backed up";

std::string textOf(const Titles& titles) {
  if (!titles) {
    return "no menu";
  }
  std::string text;
  for (const std::string& title : *titles) {
    text += (text.empty() ? "[" : " | ") + title;
  }
  return text + "]";
}

Outcome outcomeOf(const Titles& menu, const Titles& clean) {
  if (menu == clean) {
    return Outcome::whole;
  }
  if (!menu) {
    return Outcome::none;
  }
  const auto isClean = [&](const std::string& title) {
    return std::find(clean->begin(), clean->end(), title) != clean->end();
  };
  return clean && std::all_of(menu->begin(), menu->end(), isClean) ? Outcome::fewer : Outcome::other;
}

/// Whether the client has noticed that its link was lost. From then on it tries again on a timer.
bool triesAgain() { return RunLoop::main().load().timers > 0; }

void awaitLink(bool hasNoticed) {
  if ((!hasNoticed && !eventuallyRunning(triesAgain)) || !eventuallyRunning([] { return !triesAgain(); })) {
    throw std::runtime_error("a link that was lost is not back while its menu is open");
  }
}

}  // namespace

CampaignHost::CampaignHost(const Scene& scene, std::uint64_t seed, std::uint32_t firstCycle)
    : seed_(seed),
      subject_(scene.subject(firstCycle)),
      proxy_(bundle_.daemonPath(), scene.socket()),
      daemon_(scene.socket()) {
  setenv("LC_ALL", "C", 1);
  setLogReceiver([](std::string_view) {});
  Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
  std::string error;
  if (!host_.load(bundle_.path(), &error)) {
    throw std::runtime_error(error);
  }
  const std::ptrdiff_t threads = countOf("task");
  // These cycles create everything that is created once in a process.
  cycle({}, kNoCommand);
  for (const std::uint32_t command : subject_.commands) {
    checkCommand({}, command, cycle({}, command));
  }
  cleanAnswers_ = possibleAnswers(cycle({}, kNoCommand).report).front();
  // A receive thread that has not ended yet also keeps the other resources of its link.
  if (!eventually([&] { return countOf("task") == threads; })) {
    throw std::runtime_error("a thread of the first cycles stays");
  }
  before_ = std::make_unique<Footprint>();
}

Outcome CampaignHost::run(std::uint32_t number) {
  const FaultPlan plan = FaultPlan::random(seed_, number);
  const std::uint32_t round = number / kSubjects;
  const std::uint32_t mostly =
      subject_.commands.empty() ? kNoCommand : subject_.commands[round / 4 % subject_.commands.size()];
  // An unread answer would keep the client from noticing the end of its link.
  const bool staysOpen = round % 4 == 1 && mostly != kNoCommand && plan.effect() == Effect::missing;
  const std::uint32_t command = staysOpen || round % 4 == 0 ? mostly : kNoCommand;
  const Cycle faulty = cycle(plan, command, staysOpen);
  checkMenu(plan, faulty);
  checkCommand(plan, command, faulty);
  checkFootprint("the faulty cycle");
  const Cycle clean = cycle({}, kNoCommand);
  if (clean.menu != subject_.menu) {
    throw std::runtime_error("the clean cycle that follows shows " + textOf(clean.menu));
  }
  checkFootprint("the clean cycle that follows");
  cleanAnswers_ = possibleAnswers(clean.report).front();  // these contain the dates of backups
  return outcomeOf(faulty.menu, subject_.menu);
}

CampaignHost::Cycle CampaignHost::cycle(const FaultPlan& plan, std::uint32_t command, bool staysOpen) {
  const Selection selection{subject_.paths};
  proxy_.begin(plan);
  const MenuHost::Examination examination = host_.examine(selection);
  RunLoop::main().runDue();              // as a host's loop does while its menu is open
  const bool hasNoticed = triesAgain();  // the next run of the loop may already connect again
  Cycle cycle;
  const bool isLost = staysOpen && proxy_.hasReport();
  if (isLost) {
    cycle.report = proxy_.report();
    proxy_.begin({});
    awaitLink(hasNoticed);
  }
  if (command != kNoCommand) {
    host_.select(selection, command);
  }
  host_.cleanup();
  const ConnectionReport last = proxy_.report();
  if (!isLost) {
    cycle.report = last;
  } else {
    cycle.back = last;
  }
  if (examination.status != kNoErr) {
    throw std::runtime_error("the examination answers " + std::to_string(examination.status));
  }
  for (const MenuItem& parent : examination.menu) {
    cycle.menu.emplace();
    for (const MenuItem& item : parent.items) {
      cycle.menu->push_back(item.title);
    }
  }
  return cycle;
}

void CampaignHost::checkMenu(const FaultPlan& plan, const Cycle& faulty) const {
  std::set<std::string> possibleMenus;
  bool isPossible = false;
  const std::vector<Answers> possible = possibleAnswers(faulty.report);
  for (const Answers& answers : possible) {
    const Titles menu = menuFor(subject_.paths, answers);
    isPossible |= menu == faulty.menu;
    possibleMenus.insert(textOf(menu));
    const std::string wrong = contradiction(plan.effect(), answers, cleanAnswers_);
    if (!wrong.empty() && !asksAfterOrder(faulty.report.forwarded)) {
      throw std::runtime_error(wrong);
    }
  }
  if (!isPossible) {
    std::string all;
    for (const std::string& menu : possibleMenus) {
      all += "\n    " + menu;
    }
    throw std::runtime_error("the menu is " + textOf(faulty.menu) + ", and what was received says" + all);
  }
  if (plan.effect() == Effect::whole && faulty.menu != subject_.menu) {
    throw std::runtime_error("the menu is " + textOf(faulty.menu));
  }
}

void CampaignHost::checkCommand(const FaultPlan& plan, std::uint32_t command, const Cycle& faulty) {
  const FaultPlan faults = faulty.back ? FaultPlan() : plan;
  const Orders arrived = ordersIn((faulty.back ? *faulty.back : faulty.report).forwarded);
  const std::string wrong = misdelivery(faults, arrived, ordersOf(command, subject_.paths));
  if (!wrong.empty()) {
    throw std::runtime_error((faulty.back ? "over the link that is back, " : "") + wrong);
  }
  if (command != kBackupASAP) {
    return;
  }
  const bool certain = faults.of(Direction::requests).effect() == Effect::whole;
  for (const std::string& path : subject_.paths) {
    const std::set<Standing> possible = possibleStandings(arrived, path, certain);
    Standing found = Standing::leftOut;
    // At the moment of its backup a file is no longer preferred and not yet backed up.
    if (!eventually([&] { return possible.contains(found = standing(path)); })) {
      std::string orders;
      for (const Order& order : arrived) {
        orders += "\n    " + order.selector + ' ' + order.path;
      }
      throw std::runtime_error(path + " is " + kStandings[static_cast<std::size_t>(found)] +
                               ", and this has arrived:" + orders);
    }
    takeBack(path);
  }
}

Standing CampaignHost::standing(const std::string& path) {
  const PropertyList node = daemon_->dictionaryForPath(path, 0);
  const std::uint32_t flags = node["simpleFlags"].unsignedIntValue();
  if ((flags & simple_flags::kChecked) == 0) {
    return Standing::leftOut;
  }
  const bool isPreferred =
      (flags & simple_flags::kPriorityChecked) != 0 || node["state"].string() == kBackedUp;
  return isPreferred ? Standing::preferred : Standing::included;
}

void CampaignHost::takeBack(const std::string& path) {
  // A file stays preferred until it is backed up, whatever the rules say.
  const auto isBackedUp = [&] { return daemon_->dictionaryForPath(path, 0)["state"].string() == kBackedUp; };
  if (standing(path) == Standing::preferred && !eventually(isBackedUp)) {
    throw std::runtime_error(path + " is preferred and not backed up");
  }
  daemon_->removeFileFromBackup(path);
  // A file that is backed up and unchanged cannot be preferred again.
  std::filesystem::last_write_time(path, std::filesystem::last_write_time(path) + std::chrono::hours(1));
  const auto isAsBefore = [&] {
    using namespace simple_flags;
    const std::uint32_t flags = daemon_->dictionaryForPath(path, 0)["simpleFlags"].unsignedIntValue();
    return (flags & (kChecked | kPriorityEnabled | kPriorityChecked)) == kPriorityEnabled;
  };
  if (!eventually(isAsBefore)) {
    throw std::runtime_error("a command on " + path + " cannot be taken back");
  }
}

void CampaignHost::checkFootprint(const char* after) const {
  if (!eventually([&] { return Footprint() == *before_; })) {
    std::ostringstream text;
    text << "after " << after << " there are " << Footprint() << ", and before the campaign there were "
         << *before_;
    throw std::runtime_error(text.str());
  }
}

}  // namespace keldane::testing
