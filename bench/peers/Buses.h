// The same question over two message buses, from peer to peer without a broker.
#pragma once

#include <memory>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane::bench {

/// Listens at `path` and serves the first peer: each question is answered with the entries of `answer`.
/// Returns when the peer has gone.
void serveSdBus(const std::string& path, const PropertyList& answer);
void serveGDBus(const std::string& path, const PropertyList& answer);

class SdBusClient {
 public:
  explicit SdBusClient(const std::string& path);
  ~SdBusClient();
  SdBusClient(const SdBusClient&) = delete;
  SdBusClient& operator=(const SdBusClient&) = delete;
  /// Calls once and returns the number of entries in the answer, all of which are read.
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
