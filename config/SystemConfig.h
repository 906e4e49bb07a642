// The administrator's configuration of the backup, /etc/keldane/keldane.conf.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keldane {

/// A line that is not understood, and the reason.
struct ConfigProblem {
  unsigned line = 0;  ///< counted from 1; 0 for the whole file
  std::string sentence;
};

struct ConfigValue {
  std::string text;    ///< in the form that `SystemConfig` describes
  bool fixed = false;  ///< the user may not change it
};

/// Holds the defaults and the fixed values by name. Numbers are decimal text without leading zeros. "yes" and
/// "no" are stored as "1" and "0". In paths and locations, ${HOST}, ${USER} and ${HOME} are replaced by the
/// values for this process's effective user. Lines with problems are left out. The object is immutable, and
/// any thread may use it.
class SystemConfig {
 public:
  static constexpr char kUsualFile[] = "/etc/keldane/keldane.conf";

  /// A configuration without values.
  SystemConfig() = default;
  /// Reads the file. A missing file gives no values. A file that cannot be read is reported as a problem.
  static SystemConfig read(const std::string& file = kUsualFile);
  static SystemConfig parse(std::string_view text);

  /// The fixed value, or else the default. Absent for lists.
  std::optional<ConfigValue> value(std::string_view name) const;
  bool isFixed(std::string_view name) const;
  /// The absolute paths of "include" or "exclude".
  std::vector<std::string> list(std::string_view name, bool fixed) const;
  const std::vector<ConfigProblem>& problems() const { return problems_; }

  /// The names that a file may hold, lists included, in the order of the documentation.
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
