// The files of a bundle: its information dictionary and a strings table.
#include "platform/bundle/Bundle.h"

#include "fuzz/plist/PropertyLists.h"
#include "platform/syslog/SystemLog.h"
#include "tests/support/TemporaryFolder.h"

using namespace keldane;
using namespace keldane::fuzzing;
using keldane::testing::TemporaryFolder;

namespace {

std::size_t lines = 0;
std::size_t runs = 0;

void checkTexts(const Bundle& bundle, const PropertyList& table) {
  for (std::size_t i = 0; i < table.count(); ++i) {
    const auto [key, text] = table.entry(i);
    const std::string found = bundle.localizedStringForKey(key.string(), "other");
    require(found == (text.isString() ? text.string() : "other"), "a text is found under its key");
  }
  bundle.localizedStringForKey("any", "other");  // reads the table, if nothing has read it before
  require(bundle.localizedStringForKey("any", "other", "Missing") == "other",
          "without a table there is the other text");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  setLogReceiver([](std::string_view line) {
    require(line.size() < 4096, "a log line is short");
    ++lines;
  });
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool isTable = input.number() % 2 == 0;
  const std::string content(input.restAsText());
  const PropertyList value = PropertyListSerialization::propertyListFromData(input.rest(), nullptr);
  const PropertyList expected = value.isDictionary() ? value : PropertyList::dictionary({});

  // A bundle keeps the files that it has read for the lifetime of the process, so each run has a bundle of
  // its own. Its name is a number, because the name of the folder around it is random and may come again.
  const TemporaryFolder folder;
  const std::string name = std::to_string(++runs);
  folder.write(name + (isTable ? "/Contents/Resources/de.lproj/Localizable.strings" : "/Contents/Info.plist"),
               content);
  const std::shared_ptr<Bundle> bundle = Bundle::bundleWithPath(folder / name);
  require(bundle != nullptr && Bundle::bundleWithPath(folder / name) == bundle, "one bundle a path");
  const std::size_t before = lines;
  checkTexts(*bundle, isTable ? expected : PropertyList());
  require(isTable ? bundle->infoDictionary().count() == 0
                  : written(bundle->infoDictionary(), Format::binary) == written(expected, Format::binary),
          "the dictionary is that of the file");
  require((lines > before) == !value.isDictionary(), "a file that cannot be used is logged");
  const std::filesystem::path module = bundle->executablePath();
  require(module.empty() || module.parent_path() == bundle->bundlePath() / "Contents" / "Linux",
          "the module lies in the bundle");
  return 0;
}
