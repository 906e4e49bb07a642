// What the computer's administrator wants of the backup: /etc/keldane/keldane.conf.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keldane {

/// A line that is not understood, and why.
struct ConfigProblem {
  unsigned line = 0;  ///< from 1; 0: the file as a whole
  std::string sentence;
};

struct ConfigValue {
  std::string text;    ///< as `SystemConfig` says for its name
  bool fixed = false;  ///< the user may not change it
};

/// Defaults and fixed values by name. Numbers are decimal text without leading zeros, "yes" and "no" are "1"
/// and "0", and in paths and locations ${HOST}, ${USER} and ${HOME} have been replaced by those of this
/// process's effective user. Lines with problems are left out. Immutable; any thread.
class SystemConfig {
 public:
  static constexpr char kUsualFile[] = "/etc/keldane/keldane.conf";

  /// No values.
  SystemConfig() = default;
  /// A file that is not there has no values; one that cannot be read is a problem.
  static SystemConfig read(const std::string& file = kUsualFile);
  static SystemConfig parse(std::string_view text);

  /// The fixed value, else the default. Not for lists.
  std::optional<ConfigValue> value(std::string_view name) const;
  bool isFixed(std::string_view name) const;
  /// "include" or "exclude": absolute paths.
  std::vector<std::string> list(std::string_view name, bool fixed) const;
  const std::vector<ConfigProblem>& problems() const { return problems_; }

  /// The names that a file may hold, lists included, in the order in which they are explained.
  static std::vector<std::string> names();
  static bool isList(std::string_view name);

 private:
  struct Section {
    std::map<std::string, std::string, std::less<>> values;
    std::map<std::string, std::vector<std::string>, std::less<>> lists;
  };
  void readLine(std::string_view line, Section*& section);
  void readValue(std::string_view name, std::string_view text, Section& section);

  Section defaults_, fixed_;
  std::vector<ConfigProblem> problems_;
};

}  // namespace keldane
