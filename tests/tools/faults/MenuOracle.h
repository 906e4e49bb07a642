// Computes the menus that a faulty connection may lead to, from the bytes that reached the client.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/plist/PropertyList.h"
#include "tests/tools/faults/proxy/FaultProxy.h"

namespace keldane::testing {

/// The titles of the submenu's items; absent when there is no menu.
using Titles = std::optional<std::vector<std::string>>;

/// The answers to the questions of one connection, in order; absent for an answer without a value. Questions
/// beyond the end were not answered, which also reads as absent.
using Answers = std::vector<PropertyList>;

/// Nothing on the wire ties an answer to its question: a message is a marker, a type and a length, and the
/// next answer belongs to the next question. There is one question at a time, and no limit to the wait for
/// its answer. So these are all the conclusions that a client can draw from the bytes that it receives:
///
/// - The client reads the stream in steps of the marker's length until one step is the marker. Extra bytes
///   before a message change nothing when they fill whole steps. Otherwise they hide the message, and the
///   client reads past it.
/// - A response is the answer to the present question, or, when it comes early, to the first question that
///   follows. An answer that cannot be read or is empty is absent, but it is an answer.
/// - A request of the daemon's is no answer.
/// - A message of another type is an absent answer once the client has asked anything; before that it is
///   ignored.
/// - When the link has ended, the received answers are still used, unless a question can no longer be sent;
///   from then on all answers are absent.
///
/// A fault that loses bytes or ends the link therefore leaves the answers right up to some question, and
/// absent after it. A fault that sends a message twice, early or out of turn gives a question the answer to
/// another question of this connection. Only a fault that changes bytes can give a question an answer that
/// nobody sent. `Effect` names these cases.
std::vector<Answers> possibleAnswers(const ConnectionReport& report);

/// The menu for a selection whose questions get these answers.
Titles menuFor(const std::vector<std::string>& paths, const Answers& answers);

/// Explains why a connection with that effect cannot give `answers` when a clean connection gives `clean`;
/// empty when it can.
std::string contradiction(Effect effect, const Answers& answers, const Answers& clean);

}  // namespace keldane::testing
