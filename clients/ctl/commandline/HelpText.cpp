#include "clients/ctl/commandline/HelpText.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr KnownText kParserTexts[] = {
    knownWithNames("A subcommand is required"),
    knownWithNames("%s is required"),
    knownWithNames("The following argument was not expected: %s"),
    knownWithNames("The following arguments were not expected: %s"),
    knownWithNames("%s: %s not in {%s}"),
    knownWithNames("%s: %s required %s missing"),
    knownWithNames("%s requires %s"),
    knownWithNames("%s excludes %s"),
    knownWithNames("Could not convert: %s = %s"),
    knownWithNames("Requires at most 1 options be given from [%s]"),
};

constexpr KnownText kLimits[] = {
    known("[At most %s of the following options are allowed]"),
};

/// Some releases of the library write its headings in capitals.
constexpr const char* kHeadings[] = {
    marked("Usage"),    marked("Positionals"), marked("POSITIONALS"), marked("Options"),
    marked("OPTIONS"),  marked("Subcommands"), marked("SUBCOMMANDS"), marked("SUBCOMMAND"),
    marked("REQUIRED"), marked("Needs"),       marked("Excludes"),
};

std::string headingText(const std::string& heading) {
  const auto* const found = std::find(std::begin(kHeadings), std::end(kHeadings), heading);
  return found == std::end(kHeadings) ? heading : tr(*found);
}

class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() {
    for (const char* heading : kHeadings) {
      label(heading, tr(heading));
    }
  }

  std::string make_description(const CLI::App* app) const override {
    std::string text = CLI::Formatter::make_description(app);
    const std::size_t begin = text.rfind("\n[");
    if (begin != std::string::npos && text.ends_with("]\n")) {
      text = text.substr(0, begin + 1) +
             translated(text.substr(begin + 1, text.size() - begin - 2), kLimits) + '\n';
    }
    return text;
  }

  std::string make_expanded(const CLI::App* app) const override {
    constexpr std::string_view kBegin = "[Option Group:";
    std::string text = CLI::Formatter::make_expanded(app);
    return text.starts_with(kBegin) ? std::string("[") + tr("Option Group") + ":" + text.substr(kBegin.size())
                                    : text;
  }
};

}  // namespace

void setHelpWords(CLI::App& app) {
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_help_flag("-h,--help", tr("Print this help message and exit"));
}

void setGroupWords(CLI::App& app) {
  for (CLI::Option* option : app.get_options()) {
    option->group(headingText(option->get_group()));
  }
  for (CLI::App* command : app.get_subcommands({})) {
    command->group(headingText(command->get_group()));
    setGroupWords(*command);
  }
}

std::string parseErrorText(const CLI::ParseError& error) { return translated(error.what(), kParserTexts); }

}  // namespace keldane
