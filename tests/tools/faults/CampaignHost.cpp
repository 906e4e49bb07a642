#include "tests/tools/faults/CampaignHost.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "platform/host/Host.h"
#include "platform/syslog/SystemLog.h"
#include "tests/support/Wait.h"

namespace keldane::testing {

namespace {

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

/// The client tries again on a timer, from when it has noticed.
void awaitLink() {
  const auto tries = [] { return RunLoop::main().load().timers > 0; };
  if (!eventuallyRunning(tries) || !eventuallyRunning([&] { return !tries(); })) {
    throw std::runtime_error("a link that was lost is not back while its menu is open");
  }
}

}  // namespace

CampaignHost::CampaignHost(const Scene& scene, std::uint64_t seed, std::uint32_t firstCycle)
    : seed_(seed), subject_(scene.subject(firstCycle)), proxy_(bundle_.daemonPath(), scene.socket()) {
  setenv("LC_ALL", "C", 1);
  setLogReceiver([](std::string_view) {});
  Host::shared().setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
  std::string error;
  if (!host_.load(bundle_.path(), &error)) {
    throw std::runtime_error(error);
  }
  // All that is made once in a process is made in these.
  cycle({}, kNoCommand);
  cycle({}, subject_.command);
  cleanAnswers_ = possibleAnswers(cycle({}, kNoCommand).report).front();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  before_ = std::make_unique<Footprint>();
}

Outcome CampaignHost::run(std::uint32_t number) {
  const FaultPlan plan = FaultPlan::random(seed_, number);
  const std::uint32_t round = number / kSubjects;
  // An answer that nobody waits for would keep the client from seeing the end of its link.
  const bool staysOpen = round % 4 == 1 && subject_.command != kNoCommand && plan.effect() == Effect::missing;
  const Cycle faulty = cycle(plan, staysOpen || round % 4 == 0 ? subject_.command : kNoCommand, staysOpen);
  checkMenu(plan, faulty);
  checkFootprint("the faulty cycle");
  const Cycle clean = cycle({}, kNoCommand);
  if (clean.menu != subject_.menu) {
    throw std::runtime_error("the clean cycle that follows shows " + textOf(clean.menu));
  }
  checkFootprint("the clean cycle that follows");
  return outcomeOf(faulty.menu, subject_.menu);
}

CampaignHost::Cycle CampaignHost::cycle(const FaultPlan& plan, std::uint32_t command, bool staysOpen) {
  const Selection selection{subject_.paths};
  proxy_.begin(plan);
  const MenuHost::Examination examination = host_.examine(selection);
  RunLoop::main().runDue();  // as a host's loop does while its menu is open
  Cycle cycle;
  const bool isLost = staysOpen && proxy_.hasReport();
  if (isLost) {
    cycle.report = proxy_.report();
    proxy_.begin({});
    awaitLink();
  }
  if (command != kNoCommand) {
    host_.select(selection, command);
  }
  host_.cleanup();
  const ConnectionReport last = proxy_.report();
  if (!isLost) {
    cycle.report = last;
  } else if (last.requests != subject_.paths.size()) {
    throw std::runtime_error("a command does not reach the daemon over the link that is back");
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
    if (!wrong.empty()) {
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

void CampaignHost::checkFootprint(const char* after) const {
  if (!eventually([&] { return Footprint() == *before_; })) {
    std::ostringstream text;
    text << "after " << after << " there are " << Footprint() << ", and before the campaign there were "
         << *before_;
    throw std::runtime_error(text.str());
  }
}

}  // namespace keldane::testing
