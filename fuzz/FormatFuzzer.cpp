// Formats of log lines and their arguments.
#include "platform/text/Format.h"

#include <vector>

#include "fuzz/Fuzzing.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

// The widest field or precision, plus more than the digits of any real number.
constexpr std::size_t kLongestConversion = 2 * 4096 + 400;

FormatArgument argument(Input& input) {
  switch (input.below(6)) {
    case 0:
      return input.number<std::int8_t>();
    case 1:
      return input.number<std::int64_t>();
    case 2:
      return input.number<std::uint64_t>();
    case 3:
      return input.number<double>();
    case 4:
      return input.text();
    default:
      return input.value();
  }
}

/// A conversion that C also has prints the same text as C's.
void compareWithC(Input& input) {
  std::string form = "%";
  for (const char flag : {'-', '+', ' ', '#', '0'}) {
    form += input.number() % 4 == 0 ? std::string(1, flag) : "";
  }
  form += input.number() % 2 == 0 ? std::to_string(input.below(200) + 1) : "";
  form += input.number() % 2 == 0 ? "." + std::to_string(input.below(200)) : "";
  const char letter = "dixXofeg"[input.below(8)];
  char expected[1024];
  if (std::strchr("feg", letter) != nullptr) {
    const auto real = input.number<double>();
    std::snprintf(expected, sizeof(expected), (form + letter).c_str(), real);
    require(stringWithFormat(form + letter, real) == expected, "reals print as in C");
  } else {
    const auto integer = input.number<std::int64_t>();
    std::snprintf(expected, sizeof(expected), (form + "ll" + letter).c_str(),
                  static_cast<long long>(integer));
    require(stringWithFormat(form + "ll" + letter, integer) == expected, "integers print as in C");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  if (input.number() % 4 == 0) {
    compareWithC(input);
    return 0;
  }
  const std::string format(input.text());
  std::string escaped;
  for (const char c : format) {
    escaped += c == '%' ? "%%" : std::string(1, c);
  }
  require(stringWithFormat(escaped) == format, "what is escaped prints as it stands");

  std::vector<FormatArgument> arguments;
  std::size_t longest = format.size();
  for (const char c : format) {
    longest += c == '%' ? kLongestConversion : 0;
  }
  while (!input.isEmpty() && arguments.size() < 16) {
    arguments.push_back(argument(input));
    longest += formatWithArguments("%@", &arguments.back(), 1).size();
  }
  const std::string text = formatWithArguments(format, arguments.data(), arguments.size());
  require(text.size() <= longest, "a line has an end");
  require(text == format || format.find('%') != std::string::npos, "only conversions change");
  return 0;
}
