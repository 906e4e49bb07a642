// Converts property lists to bytes and back, and does the same with other libraries on the same data:
// libplist and GNUstep's base library in the same formats, RapidJSON in its own, and a copy of the bytes.
#include <benchmark/benchmark.h>
#include <plist/plist.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "bench/Allocations.h"
#include "bench/peers/GnustepPropertyLists.h"
#include "tests/support/Samples.h"

namespace keldane::bench {
using namespace keldane::testing;
namespace {

using Format = PropertyListSerialization::Format;

struct Sample {
  const char* name;
  PropertyList (*make)();
};

constexpr Sample kSamples[] = {
    {"request", request},
    {"node", [] { return nodeDictionary(0); }},
    {"state", stateDictionary},
    {"nodes1000", [] { return nodeDictionaries(1000); }},
    {"nodes10000", [] { return nodeDictionaries(10000); }},
};

void keldaneDecode(benchmark::State& state, const Sample& sample, Format format) {
  const Bytes bytes = bytesOf(sample.make(), format);
  for (auto _ : state) {
    benchmark::DoNotOptimize(PropertyListSerialization::propertyListFromData(bytes, nullptr));
  }
  const AllocationCount allocations;
  const PropertyList value = PropertyListSerialization::propertyListFromData(bytes, nullptr);
  state.counters["allocations"] = static_cast<double>(allocations.calls());
  state.counters["bytes"] = static_cast<double>(bytes.size());
}

void keldaneEncode(benchmark::State& state, const Sample& sample, Format format) {
  const PropertyList value = sample.make();
  for (auto _ : state) {
    benchmark::DoNotOptimize(PropertyListSerialization::dataFromPropertyList(value, format, nullptr));
  }
  const AllocationCount allocations;
  benchmark::DoNotOptimize(PropertyListSerialization::dataFromPropertyList(value, format, nullptr));
  state.counters["allocations"] = static_cast<double>(allocations.calls());
}

void libplistDecode(benchmark::State& state, const Sample& sample, Format format) {
  const Bytes bytes = bytesOf(sample.make(), format);
  const auto* text = reinterpret_cast<const char*>(bytes.data());
  const auto size = static_cast<std::uint32_t>(bytes.size());
  for (auto _ : state) {
    plist_t value = nullptr;
    format == Format::binary ? plist_from_bin(text, size, &value) : plist_from_xml(text, size, &value);
    plist_free(value);
  }
}

void libplistEncode(benchmark::State& state, const Sample& sample, Format format) {
  const Bytes bytes = bytesOf(sample.make(), Format::binary);
  plist_t value = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(bytes.data()), static_cast<std::uint32_t>(bytes.size()),
                 &value);
  for (auto _ : state) {
    char* text = nullptr;
    std::uint32_t size = 0;
    format == Format::binary ? plist_to_bin(value, &text, &size) : plist_to_xml(value, &text, &size);
    std::free(text);
  }
  plist_free(value);
}

void gnustepDecode(benchmark::State& state, const Sample& sample, Format format) {
  const Bytes bytes = bytesOf(sample.make(), format);
  for (auto _ : state) {
    if (!gnustepDecodes(bytes.data(), bytes.size())) {
      state.SkipWithError("The bytes were refused.");
    }
  }
}

void gnustepEncode(benchmark::State& state, const Sample& sample, Format format) {
  const Bytes bytes = bytesOf(sample.make(), Format::binary);
  void* value = gnustepValue(bytes.data(), bytes.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(gnustepEncodes(value, static_cast<int>(format)));
  }
  gnustepRelease(value);
}

/// The same data as JSON, with dates as numbers.
rapidjson::Value jsonFrom(const PropertyList& value, rapidjson::Document::AllocatorType& memory) {
  switch (value.kind()) {
    case PropertyList::Kind::string: {
      const std::string_view text = value.string();
      return rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size()), memory);
    }
    case PropertyList::Kind::date:
      return rapidjson::Value(value.date().secondsSinceReference);
    case PropertyList::Kind::number:
      switch (value.numberKind()) {
        case PropertyList::NumberKind::boolean:
          return rapidjson::Value(value.boolValue());
        case PropertyList::NumberKind::real:
          return rapidjson::Value(value.doubleValue());
        default:
          return rapidjson::Value(value.longLongValue());
      }
    case PropertyList::Kind::array: {
      rapidjson::Value array(rapidjson::kArrayType);
      for (std::size_t i = 0; i < value.count(); ++i) {
        array.PushBack(jsonFrom(value[i], memory), memory);
      }
      return array;
    }
    case PropertyList::Kind::dictionary: {
      rapidjson::Value object(rapidjson::kObjectType);
      for (std::size_t i = 0; i < value.count(); ++i) {
        const PropertyList::Entry entry = value.entry(i);
        object.AddMember(jsonFrom(entry.first, memory), jsonFrom(entry.second, memory), memory);
      }
      return object;
    }
    default:
      return {};
  }
}

std::string jsonText(const rapidjson::Document& document) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  return {buffer.GetString(), buffer.GetSize()};
}

void rapidjsonDecode(benchmark::State& state, const Sample& sample, Format /*format*/) {
  rapidjson::Document document;
  static_cast<rapidjson::Value&>(document) = jsonFrom(sample.make(), document.GetAllocator());
  const std::string text = jsonText(document);
  for (auto _ : state) {
    rapidjson::Document read;
    read.Parse(text.data(), text.size());
    benchmark::DoNotOptimize(read.IsObject());
  }
}

void rapidjsonEncode(benchmark::State& state, const Sample& sample, Format /*format*/) {
  rapidjson::Document document;
  static_cast<rapidjson::Value&>(document) = jsonFrom(sample.make(), document.GetAllocator());
  for (auto _ : state) {
    benchmark::DoNotOptimize(jsonText(document));
  }
}

void copyBytes(benchmark::State& state, const Sample& sample, Format format) {
  const Bytes bytes = bytesOf(sample.make(), format);
  for (auto _ : state) {
    const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[bytes.size()]);
    std::memcpy(copy.get(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(copy.get()[bytes.size() / 2]);
  }
}

struct Codec {
  const char* name;
  void (*decode)(benchmark::State&, const Sample&, Format);
  void (*encode)(benchmark::State&, const Sample&, Format);
};

constexpr Codec kCodecs[] = {
    {"keldane", keldaneDecode, keldaneEncode},
    {"libplist", libplistDecode, libplistEncode},
    {"gnustep", gnustepDecode, gnustepEncode},
    {"rapidjson", rapidjsonDecode, rapidjsonEncode},
    {"copy", copyBytes, copyBytes},
};

void registerAll() {
  for (const Format format : {Format::binary, Format::xml}) {
    for (const Sample& sample : kSamples) {
      for (const Codec& codec : kCodecs) {
        if (codec.decode == gnustepDecode && sample.name == std::string_view("nodes10000")) {
          continue;  // its time grows with the square of the number and would be a minute here
        }
        const std::string tail =
            std::string(format == Format::binary ? "/binary/" : "/xml/") + sample.name + "/" + codec.name;
        for (const auto& [verb, run] :
             {std::pair("decode", codec.decode), std::pair("encode", codec.encode)}) {
          benchmark::RegisterBenchmark((verb + tail).c_str(), [run = run, &sample,
                                                               format](benchmark::State& state) {
            run(state, sample, format);
          })->Unit(benchmark::kMicrosecond);
        }
      }
    }
  }
}

}  // namespace
}  // namespace keldane::bench

int main(int argc, char** argv) {
  keldane::bench::registerAll();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
