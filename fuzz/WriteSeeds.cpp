// Writes one or more inputs for each fuzzer, made from real messages of the system's parts.
//   write-fuzz-seeds FOLDER
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Common/calls/DaemonProtocol.h"
#include "Common/nodes/FileNode.h"
#include "fuzz/FrameStream.h"
#include "fuzz/plist/PropertyLists.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

namespace fs = std::filesystem;

class Seeds {
 public:
  explicit Seeds(fs::path folder) : folder_(std::move(folder)) {}

  /// `front` holds the bytes by which a fuzzer chooses what to do with the rest.
  void add(const char* target, const std::string& front, BytesView rest) {
    fs::create_directories(folder_ / target);
    std::ofstream file(folder_ / target / std::to_string(count_++), std::ios::binary);
    file << front;
    file.write(reinterpret_cast<const char*>(rest.data()), static_cast<std::streamsize>(rest.size()));
    require(file.good(), "a seed is written");
  }
  void add(const char* target, const std::string& front, std::string_view text) {
    add(target, front, BytesView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
  }

 private:
  fs::path folder_;
  int count_ = 0;
};

PropertyList node() {
  const auto made = KeldaneFileNode::create("letter.txt", false);
  made->setPath("/home/anna/letter.txt");
  made->setState("Backed up");
  made->setBackupFlags(backup_flags::kBackup | backup_flags::kBackedUp);
  made->setBackupDate(Date{800000000.5});
  made->setVersion(3);
  made->setSizeValue(123456789012);
  return made->dictionary();
}

PropertyList folder() {
  return PropertyList::dictionary({{"fileName", "anna"},
                                   {"path", "/home/anna"},
                                   {"isDirectory", true},
                                   {"children", PropertyList::array({node(), node()})}});
}

/// An argument for a type code, as a client would pass it.
PropertyList argument(const MethodSignature& method, char code) {
  const bool several = method.selector.find("iles") != std::string_view::npos;
  return code != '@' ? PropertyList(1)
         : several   ? PropertyList::array({"/home/anna/letter.txt", "/home/anna"})
                     : PropertyList("/home/anna/letter.txt");
}

Bytes request(const MethodSignature& method) {
  PropertyList::Array elements = {8, std::string(1, method.returnCode), method.selector,
                                  method.argumentCodes.size()};
  for (const char code : method.argumentCodes) {
    elements.insert(elements.end(), {std::string(1, code), argument(method, code)});
  }
  return written(PropertyList::array(std::move(elements)), Format::binary);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "Usage: write-fuzz-seeds FOLDER\n";
    return 2;
  }
  Seeds seeds(argv[1]);
  const PropertyList everything =
      PropertyList::array({node(), folder(), true, -1, UINT64_MAX, 0.5, Date{-1.5},
                           PropertyList::data(Bytes{0, 255}), "Grüße 𝄞"});
  for (const PropertyList& value : {node(), folder(), everything}) {
    seeds.add("BinaryPropertyList", "", written(value, Format::binary));
    seeds.add("XmlPropertyList", "", written(value, Format::xml));
    seeds.add("PropertyListRoundTrip", "", written(value, Format::binary));
    seeds.add("FileNode", "\1", written(value, Format::binary));
    seeds.add("KeldProxy", "\2\1", written(value, Format::binary));
    seeds.add("TextPropertyList", "", value.description());
  }
  for (const MethodSignature& method : KeldaneDaemonProtocol.methods) {
    Bytes frame;
    appendFrame(frame, kRequestFrame, request(method));
    seeds.add("KeldSocket", "\7", frame);
    seeds.add("DaemonServer", std::string(1, '\0'), request(method));
    seeds.add("DaemonServer", "\1", frame);
    seeds.add("DaemonServer", "\2", request(method));
  }
  for (const char* selector : {"echo:", "add:", "tell:"}) {
    const MethodSignature method = {selector, '@', "@"};
    seeds.add("KeldProxy", "\1\1", request(method));
    seeds.add("KeldProxy", std::string("\1\0", 2), request(method));
  }
  for (const auto& entry : fs::recursive_directory_iterator(KELDANE_RESOURCES)) {
    if (entry.is_regular_file()) {
      std::ifstream stream(entry.path(), std::ios::binary);
      const std::string content{std::istreambuf_iterator<char>(stream), {}};
      const bool isTable = entry.path().extension() == ".strings";
      seeds.add(isTable ? "TextPropertyList" : "XmlPropertyList", "", content);
      seeds.add("Bundle", isTable ? std::string(1, '\0') : "\1", content);
    }
  }
  for (const char* path :
       {"/home/anna/a:b.txt", "Linux:home:anna:a/b", "file:///home/anna/a%20b/", "/a//b/../c/"}) {
    seeds.add("PathDescriptors", "", std::string_view(path));
  }
  for (const char* format : {"%@ : %d of %lu", "0x%8.8lx %-10s|%5.2f %c%%", "KeldProxy %s: %@."}) {
    seeds.add("Format", std::string("\1") + static_cast<char>(std::strlen(format)),
              std::string(format) + "\1\7\7\7\7\7\7\7\7\4\3abc\5\7\3abc");
  }
  // Each step is a few small numbers: one or two slots, a call, and the arguments of the call.
  std::string steps;
  for (char call = 0; call < 12; ++call) {
    steps += std::string({call, 0, 1, call, 0, 6, 7, 4, 'a', 'b', 'c', 'd', 1, 0, 2, 3});
  }
  seeds.add("AppleEvents", "", std::string_view(steps));
  return 0;
}
