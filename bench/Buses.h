// The same question over two message buses, peer to peer without a broker between.
#pragma once

#include <memory>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane::bench {

/// Listens at `path` and answers the first peer that comes: each question with the entries of `answer`.
/// Returns when it has gone.
void serveSdBus(const std::string& path, const PropertyList& answer);
void serveGDBus(const std::string& path, const PropertyList& answer);

class SdBusClient {
 public:
  explicit SdBusClient(const std::string& path);
  ~SdBusClient();
  SdBusClient(const SdBusClient&) = delete;
  SdBusClient& operator=(const SdBusClient&) = delete;
  /// The number of entries in the answer, each of which was read.
  std::size_t call(const std::string& file);

 private:
  struct Link;
  std::unique_ptr<Link> link_;
};

class GDBusClient {
 public:
  explicit GDBusClient(const std::string& path);
  ~GDBusClient();
  GDBusClient(const GDBusClient&) = delete;
  GDBusClient& operator=(const GDBusClient&) = delete;
  std::size_t call(const std::string& file);

 private:
  struct Link;
  std::unique_ptr<Link> link_;
};

}  // namespace keldane::bench
