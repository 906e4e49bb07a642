// What a fault proxy does to one connection: faults, each of a kind, in a direction, at a place.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keldane::testing {

/// Bytes of a frame before its payload: marker, type, length.
constexpr std::uint32_t kHeader = 44;

/// From the client to the daemon, or back.
enum class Direction : std::uint8_t { requests, answers };

/// `at` and `amount` of a fault, by its kind. Frames and bytes are counted from 0 in the fault's direction;
/// those that the proxy adds count as bytes, not as frames.
enum class FaultKind : std::uint8_t {
  delay,     ///< frame `at` is held back for `amount` milliseconds
  split,     ///< of `amount` frames from frame `at` on, each byte is a write of its own
  join,      ///< `amount` frames from frame `at` on are one write, with those that come in time
  garbage,   ///< `amount` bytes that hold no marker come before frame `at`
  cut,       ///< `amount` bytes from byte `at` on are left out
  stop,      ///< after byte `at` nothing more is read
  close,     ///< once byte `at` is reached, both ends are closed
  early,     ///< the first `amount` frames of the last clean connection go out before anything has been
             ///< read; with `at` 1 the same number of frames is left out when it comes
  repeat,    ///< frame `at` goes out again after `amount` more
  reorder,   ///< frame `at` goes out after the one that follows it, which the last clean connection foretells
  swapType,  ///< frame `at` has the type `amount`
  swapValue,  ///< of frame `at`, value number `amount` of its property list is of another kind
  flip        ///< of byte `at`, bit `amount` is the other one
};

/// What may become of the answers of a connection. Each includes those before it.
enum class Effect : std::uint8_t {
  whole,      ///< every question gets its answer
  missing,    ///< from some question on, none is answered
  misplaced,  ///< a question may get an answer that belongs to another one
  altered     ///< a question may get what nobody answered
};

struct Fault {
  Direction direction = Direction::requests;
  FaultKind kind = FaultKind::delay;
  std::uint32_t at = 0;
  std::uint32_t amount = 0;

  bool is(Direction wanted, FaultKind kindWanted) const { return direction == wanted && kind == kindWanted; }
  Effect effect() const;
  /// Direction and kind in words.
  std::string name() const;
  bool operator==(const Fault&) const = default;
};

/// All faults of one connection; none is a clean one.
struct FaultPlan {
  std::vector<Fault> faults;

  /// The plan of one cycle of a campaign: always the same for the same two numbers, never a clean one.
  static FaultPlan random(std::uint64_t seed, std::uint32_t cycle);
  /// Reads what `text` writes: "answers garbage 2 37; requests flip 60 3", or nothing for a clean plan.
  static std::optional<FaultPlan> parse(const std::string& text);
  std::string text() const;

  Effect effect() const;
  /// Its faults in that direction.
  FaultPlan of(Direction direction) const;
  /// The first fault of that kind, else null.
  const Fault* find(Direction direction, FaultKind kind) const;
  bool operator==(const FaultPlan&) const = default;
};

}  // namespace keldane::testing
