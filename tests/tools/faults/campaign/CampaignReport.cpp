#include "tests/tools/faults/campaign/CampaignReport.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "tests/tools/faults/proxy/FaultPlan.h"

namespace keldane::testing {

void say(int pipe, const std::string& word, std::uint32_t lane, std::uint32_t cycle, std::string text) {
  std::replace(text.begin(), text.end(), '\n', '\t');
  const std::string line =
      (word + ' ' + std::to_string(lane) + ' ' + std::to_string(cycle) + ' ' + text).substr(0, PIPE_BUF - 1) +
      '\n';
  if (write(pipe, line.data(), line.size()) < 0) {
    std::exit(1);  // nobody reads the pipe any more
  }
}

void CampaignReport::hear(const std::string& line) {
  std::istringstream words(line);
  std::string word;
  std::uint32_t lane = 0;
  std::uint32_t cycle = 0;
  words >> word >> lane >> cycle;
  running_[lane] = cycle;
  if (word == "end") {
    std::size_t outcome = 0;
    words >> outcome;
    ++done_;
    const FaultPlan plan = FaultPlan::random(seed_, cycle);
    const std::string row = plan.faults.size() == 1 ? plan.faults[0].name() : "several at once";
    ++table_[row][outcome];
  } else if (word == "fail") {
    std::string text;
    std::getline(words >> std::ws, text);
    std::replace(text.begin(), text.end(), '\t', '\n');
    fail(lane, text);
  }
}

void CampaignReport::fail(std::uint32_t lane, const std::string& text) {
  const std::uint32_t cycle = running_[lane];
  hasFailed_.insert(lane);
  ++failures_;
  std::cout << "FAILED, seed " << seed_ << ", cycle " << cycle << ", plan \""
            << FaultPlan::random(seed_, cycle).text() << "\": " << text << "\n  again: fault-campaign --seed "
            << seed_ << " --only " << cycle << std::endl;
}

void CampaignReport::fail(const std::string& text) {
  ++failures_;
  std::cout << "FAILED, seed " << seed_ << ": " << text << std::endl;
}

void CampaignReport::printTable() const {
  std::printf("%-18s %7s", "fault", "cycles");
  for (const char* name : kOutcomes) {
    std::printf(" %6s", name);
  }
  std::printf("\n");
  for (const auto& [name, row] : table_) {
    std::uint32_t sum = 0;
    for (const std::uint32_t count : row) {
      sum += count;
    }
    std::printf("%-18s %7u", name.c_str(), sum);
    for (const std::uint32_t count : row) {
      std::printf(" %6u", count);
    }
    std::printf("\n");
  }
}

}  // namespace keldane::testing
