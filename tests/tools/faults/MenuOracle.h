// What a menu may show after a faulty connection, worked out from the bytes that reached the client.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/plist/PropertyList.h"
#include "tests/tools/faults/proxy/FaultProxy.h"

namespace keldane::testing {

/// Titles of the submenu's items; nothing when there is no menu.
using Titles = std::optional<std::vector<std::string>>;

/// What the questions of one connection were answered, in their order; absent for an answer without a value.
/// Those beyond the end were not answered, which reads as absent too.
using Answers = std::vector<PropertyList>;

/// Nothing on the wire ties an answer to its question: a message is a marker, a type and a length, and the
/// next answer belongs to the next question. There is one question at a time, and no limit to the wait for
/// its answer. So this is all that a client can make of what it receives, and all that it may:
///
/// - The stream is read in steps of the marker's length until one is the marker. What comes in whole steps
///   before a message changes nothing. What does not hides the message, and the client reads past it.
/// - A response is the answer to the question that is asked, or, when it comes early, to the first that will
///   be. An answer that cannot be read, or is empty, is absent, but it is an answer.
/// - A request of the daemon's answers nothing.
/// - A message of another type is an absent answer, once the client has asked anything; before that it is
///   nothing.
/// - When the link has ended, what was received is still answered, unless a question can no longer be sent;
///   from then on all answers are absent.
///
/// A fault that loses bytes or ends the link therefore leaves the answers right up to some question, and
/// absent from there on. One that sends a message twice, early or out of turn gives a question what was
/// answered to another one of this connection. Only one that changes bytes can give a question what nobody
/// answered. `Effect` has these by name.
std::vector<Answers> possibleAnswers(const ConnectionReport& report);

/// The menu for a selection when its questions are answered like this.
Titles menuFor(const std::vector<std::string>& paths, const Answers& answers);

/// Why answers cannot come from a connection with that effect, whose answers were these without it; empty
/// when they can.
std::string contradiction(Effect effect, const Answers& answers, const Answers& clean);

}  // namespace keldane::testing
