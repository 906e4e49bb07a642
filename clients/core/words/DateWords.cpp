#include "clients/core/words/DateWords.h"

#include <cctype>
#include <charconv>
#include <string>
#include <vector>

namespace keldane {

namespace {

constexpr int kMostUnits = 100'000;

/// The words in lower case; a "t" between two digits separates words, as a blank does.
std::vector<std::string> wordsOf(std::string_view text) {
  std::vector<std::string> words(1);
  const auto isDigitAt = [&](std::size_t at) {
    return at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0;
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
    const bool parts = c == ' ' || (c == 't' && i > 0 && isDigitAt(i - 1) && isDigitAt(i + 1));
    if (!parts) {
      words.back() += c;
    } else if (!words.back().empty()) {
      words.emplace_back();
    }
  }
  if (words.back().empty()) {
    words.pop_back();
  }
  return words;
}

/// Reads numbers with a separator between them; `digits` gives the greatest length of each.
std::optional<std::vector<int>> numbersIn(const std::string& word, char separator,
                                          const std::vector<std::size_t>& digits, std::size_t fewest) {
  std::vector<int> numbers;
  const char* at = word.data();
  const char* const end = at + word.size();
  while (at < end && numbers.size() < digits.size()) {
    if (!numbers.empty() && *at++ != separator) {
      return std::nullopt;
    }
    int number = 0;
    const auto [next, error] = std::from_chars(at, end, number);
    if (error != std::errc() || number < 0 || static_cast<std::size_t>(next - at) > digits[numbers.size()]) {
      return std::nullopt;
    }
    numbers.push_back(number);
    at = next;
  }
  return at == end && numbers.size() >= fewest ? std::optional(numbers) : std::nullopt;
}

std::optional<std::int64_t> secondsOf(std::tm parts) {
  parts.tm_isdst = -1;
  const std::tm wanted = parts;
  const std::time_t time = std::mktime(&parts);
  const bool exists =
      parts.tm_year == wanted.tm_year && parts.tm_mon == wanted.tm_mon && parts.tm_mday == wanted.tm_mday;
  return exists && time != std::time_t(-1) ? std::optional<std::int64_t>(time) : std::nullopt;
}

bool setTimeOfDay(const std::string& word, std::tm& parts) {
  const auto numbers = numbersIn(word, ':', {2, 2, 2}, 2);
  if (!numbers || numbers->at(0) > 23 || numbers->at(1) > 59 ||
      (numbers->size() > 2 && numbers->at(2) > 59)) {
    return false;
  }
  parts.tm_hour = numbers->at(0);
  parts.tm_min = numbers->at(1);
  parts.tm_sec = numbers->size() > 2 ? numbers->at(2) : 0;
  return true;
}

std::optional<std::int64_t> timeOnDay(const std::vector<std::string>& words, std::tm parts) {
  parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
  if (words.front() == "yesterday") {
    --parts.tm_mday;
    std::mktime(&parts);  // mktime turns day 0 into the last day of the month before
    parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
  } else if (words.front() != "today") {
    const auto date = numbersIn(words.front(), '-', {4, 2, 2}, 3);
    if (!date || date->at(0) < 1970) {
      return std::nullopt;
    }
    parts.tm_year = date->at(0) - 1900;
    parts.tm_mon = date->at(1) - 1;
    parts.tm_mday = date->at(2);
  }
  return words.size() == 1 || setTimeOfDay(words[1], parts) ? secondsOf(parts) : std::nullopt;
}

std::optional<std::int64_t> timeAgo(const std::vector<std::string>& words, std::tm parts, std::int64_t now) {
  int count = 0;
  const std::string& number = words[0];
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), count);
  if (error != std::errc() || end != number.data() + number.size() || count < 0 || count > kMostUnits) {
    return std::nullopt;
  }
  std::string unit = words[1];
  if (unit.ends_with('s')) {
    unit.pop_back();
  }
  if (unit == "minute" || unit == "hour") {
    return now - std::int64_t{count} * (unit == "hour" ? 3600 : 60);
  }
  if (unit == "day" || unit == "week") {
    parts.tm_mday -= count * (unit == "week" ? 7 : 1);
  } else if (unit == "month") {
    parts.tm_mon -= count;
  } else if (unit == "year") {
    parts.tm_year -= count;
  } else {
    return std::nullopt;
  }
  parts.tm_isdst = -1;
  const std::time_t time = std::mktime(&parts);
  return time != std::time_t(-1) ? std::optional<std::int64_t>(time) : std::nullopt;
}

}  // namespace

std::optional<std::int64_t> timeNamed(std::string_view text, std::time_t now) {
  const std::vector<std::string> words = wordsOf(text);
  std::tm parts{};
  if (words.empty() || localtime_r(&now, &parts) == nullptr) {
    return std::nullopt;
  }
  if (words.size() == 1 && words.front() == "now") {
    return now;
  }
  if (words.size() == 3) {
    return words[2] == "ago" ? timeAgo(words, parts, now) : std::nullopt;
  }
  return words.size() < 3 ? timeOnDay(words, parts) : std::nullopt;
}

}  // namespace keldane
