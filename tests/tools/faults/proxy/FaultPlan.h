// The faults that a fault proxy adds to one connection, each with a kind, a direction and a place.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keldane::testing {

/// The bytes of a frame before its payload: marker, type, length.
constexpr std::uint32_t kHeader = 44;

/// The direction from the client to the daemon, or back.
enum class Direction : std::uint8_t { requests, answers };

/// The meaning of a fault's `at` and `amount`, by its kind. Frames and bytes are counted from 0 in the
/// fault's direction; frames that the proxy adds count as bytes, not as frames.
enum class FaultKind : std::uint8_t {
  delay,      ///< frame `at` is held back for `amount` milliseconds
  split,      ///< each byte of `amount` frames, from frame `at` on, is written by itself
  join,       ///< `amount` frames, from frame `at` on, are one write, as far as they come in time
  garbage,    ///< `amount` bytes without a marker come before frame `at`
  cut,        ///< `amount` bytes from byte `at` on are left out
  stop,       ///< nothing is read after byte `at`
  close,      ///< once byte `at` is reached, both ends are closed
  early,      ///< the first `amount` frames of the last clean connection go out before anything has been
              ///< read; with `at` 1 the same number of frames is left out when it comes
  repeat,     ///< frame `at` goes out again after `amount` more
  reorder,    ///< frame `at` goes out after the next one, which is known from the last clean connection
  swapType,   ///< frame `at` has the type `amount`
  swapValue,  ///< value number `amount` of the property list in frame `at` becomes one of another kind
  flip        ///< bit `amount` of byte `at` is inverted
};

/// The possible effects on the answers of a connection. Each includes those before it.
enum class Effect : std::uint8_t {
  whole,      ///< every question gets its answer
  missing,    ///< from some question on, none is answered
  misplaced,  ///< a question may get an answer that belongs to another one
  altered     ///< a question may get an answer that nobody sent
};

struct Fault {
  Direction direction = Direction::requests;
  FaultKind kind = FaultKind::delay;
  std::uint32_t at = 0;
  std::uint32_t amount = 0;

  bool is(Direction wanted, FaultKind kindWanted) const { return direction == wanted && kind == kindWanted; }
  Effect effect() const;
  /// The direction and the kind in words.
  std::string name() const;
  bool operator==(const Fault&) const = default;
};

/// All faults of one connection; a clean connection has none.
struct FaultPlan {
  std::vector<Fault> faults;

  /// The plan of one cycle of a campaign, always the same for the same two numbers and never clean.
  static FaultPlan random(std::uint64_t seed, std::uint32_t cycle);
  /// Reads the format that `text` writes: "answers garbage 2 37; requests flip 60 3", or nothing for a clean
  /// plan.
  static std::optional<FaultPlan> parse(const std::string& text);
  std::string text() const;

  Effect effect() const;
  /// The faults in that direction.
  FaultPlan of(Direction direction) const;
  /// The first fault of that kind, or null.
  const Fault* find(Direction direction, FaultKind kind) const;
  bool operator==(const FaultPlan&) const = default;
};

}  // namespace keldane::testing
