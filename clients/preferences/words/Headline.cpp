#include "clients/preferences/words/Headline.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "clients/core/words/Units.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

namespace {

constexpr double kMinute = 60, kHour = 60 * kMinute, kDay = 24 * kHour;
constexpr double kTooOld = 3 * kDay;  // age of the last good backup, while something waits

struct Trouble {
  std::string_view health;
  const char* sentence;
  Remedy remedy;
};

#define marked(text) text
constexpr std::array kTroubles{
    Trouble{"notSetUp", marked("It is not set up yet where the backup is to be kept."), Remedy::setUp},
    Trouble{"missing", marked("The backup is gone: there is none any more at its place."),
            Remedy::showStorage},
    Trouble{"otherRepository", marked("Another computer's backup lies where this one's should be."),
            Remedy::showStorage},
    Trouble{"wrongKey", marked("The key does not open the backup."), Remedy::showStorage},
    Trouble{"notConnected", marked("The disk with the backup is not connected. Please plug it in."),
            Remedy::lookAgain},
    Trouble{"unreachable", marked("The server with the backup cannot be reached."), Remedy::lookAgain},
    Trouble{"denied", marked("The server or the system refuses access to the backup."), Remedy::showStorage},
    Trouble{"locked", marked("Another computer is busy with the backup, or has left it locked."),
            Remedy::lookAgain},
    Trouble{"full", marked("No room is left where the backup is kept."), Remedy::showStorage},
    Trouble{"damaged", marked("The backup is damaged: what is stored is not what it was."),
            Remedy::showStorage},
    Trouble{"engineMissing", marked("The program that stores the backup, restic, is not installed."),
            Remedy::lookAgain},
    Trouble{"engineTooOld", marked("The program that stores the backup, restic, is too old."),
            Remedy::lookAgain},
    Trouble{"failed", marked("The backup could not be stored."), Remedy::lookAgain},
};

std::string buttonFor(Remedy remedy) {
  switch (remedy) {
    case Remedy::setUp:
      return tr("Set Up…");
    case Remedy::lookAgain:
      return tr("Try Again");
    case Remedy::showStorage:
      return tr("Show the Storage");
    case Remedy::chooseFiles:
      return tr("Choose Files…");
    case Remedy::showFailures:
      return tr("Show the Files");
    case Remedy::resume:
      return tr("Go On Now");
    case Remedy::switchOn:
      return tr("Switch It On");
    case Remedy::goOn:
      return tr("Go On Backing Up");
    case Remedy::backUpByItself:
      return tr("Back Up by Itself");
    case Remedy::none:
      break;
  }
  return {};
}

Headline trouble(std::string sentence, Remedy remedy, std::optional<AlertKind> alert = {}) {
  return {std::move(sentence), true, alert, remedy, buttonFor(remedy)};
}

std::optional<Headline> troubleOf(const StatusSnapshot& status) {
  if (!status.storeTrouble.empty()) {
    return trouble(status.storeTrouble, Remedy::none);
  }
  const auto* const found = std::find_if(kTroubles.begin(), kTroubles.end(),
                                         [&](const Trouble& each) { return each.health == status.health; });
  if (found != kTroubles.end()) {
    const bool isStorage = found->remedy == Remedy::showStorage;
    return trouble(tr(found->sentence), found->remedy,
                   isStorage ? std::optional(AlertKind::storage) : std::nullopt);
  }
  if (!status.health.empty() && status.health != "ready") {
    return trouble(tr("The backup could not be stored."), Remedy::lookAgain);
  }
  if (status.heldBy == "off") {
    return trouble(tr("The backup is switched off."), Remedy::switchOn);
  }
  if (status.heldBy == "recovering") {
    return trouble(tr("Nothing is stored after a recovery until you say that it may be."), Remedy::goOn);
  }
  if (status.overQuota) {
    return trouble(tr("More is stored than the quota allows."), Remedy::showStorage);
  }
  return std::nullopt;
}

/// The reason why files wait although nothing is broken.
std::optional<Headline> pauseOf(const StatusSnapshot& status, const std::string& waiting) {
  if (status.paused) {
    return Headline{filled(tr("The backup is paused for %s."),
                           durationText(std::chrono::minutes(std::max(1U, status.pausedMinutes)))),
                    false,
                    {},
                    Remedy::resume,
                    buttonFor(Remedy::resume)};
  }
  if (status.heldBy == "manual" && status.pendingFiles > 0) {
    return Headline{filled(trn("%s waits, because the backup does not run by itself.",
                               "%s wait, because the backup does not run by itself.", status.pendingFiles),
                           waiting),
                    false,
                    {},
                    Remedy::backUpByItself,
                    buttonFor(Remedy::backUpByItself)};
  }
  if (!status.restingBecause.empty()) {
    return Headline{filled(tr("The backup rests: %s."), status.restingBecause), false, {}, Remedy::none, {}};
  }
  return std::nullopt;
}

std::string drillSentence(const PropertyList& repository) {
  const std::uint64_t samples =
      repository["drillCompared"].unsignedLongLongValue() + repository["drillHashed"].unsignedLongLongValue();
  const std::string date = dateText(repository["lastDrill"]);
  if (date.empty() || samples == 0 || repository["drillFailed"].unsignedLongLongValue() > 0) {
    return {};
  }
  return " " + filled(trn("%s sample was compared on %s.", "%s samples were compared on %s.",
                          static_cast<unsigned long>(samples)),
                      countText(samples), date.substr(0, date.find(' ')));
}

}  // namespace

std::string filesWords(std::uint64_t count) {
  return filled(trn("%s file", "%s files", static_cast<unsigned long>(count)), countText(count));
}

std::string agoText(const PropertyList& date, double now) {
  if (!date.isDate()) {
    return {};
  }
  const double seconds = std::max(0.0, now - date.date().unixTime());
  const auto text = [&](const KnownText& each, double unit) {
    const auto count = static_cast<std::uint64_t>(seconds / unit);
    return filled(trn(each.text, each.many, static_cast<unsigned long>(count)), countText(count));
  };
  if (seconds < kMinute) {
    return tr("just now");
  }
  if (seconds < kHour) {
    return text(known("%s minute ago", "%s minutes ago"), kMinute);
  }
  return seconds < 2 * kDay ? text(known("%s hour ago", "%s hours ago"), kHour)
                            : text(known("%s day ago", "%s days ago"), kDay);
}

std::optional<Headline> awayHeadline(double lastReached, double now) {
  if (lastReached == 0 || now - lastReached <= kTooOld) {
    return std::nullopt;
  }
  return trouble(filled(tr("Nothing is backed up: the backup daemon was last reached %s."),
                        agoText(Date::fromUnixTime(lastReached), now)),
                 Remedy::none, AlertKind::noBackup);
}

Headline headline(const StatusSnapshot& status, const PropertyList& repository, double now) {
  const bool isOld = status.lastGoodBackup && now - status.lastGoodBackup.date().unixTime() > kTooOld &&
                     status.pendingFiles > 0;
  if (std::optional<Headline> found = troubleOf(status)) {
    // A disk that is not connected is no reason for an alert until some days have passed.
    if (isOld && found->remedy == Remedy::lookAgain) {
      found->alert = AlertKind::noBackup;
    }
    return *found;
  }
  if (repository["drillFailed"].unsignedLongLongValue() > 0) {
    return trouble(tr("In the last drill files did not come back as they were stored."), Remedy::showStorage,
                   AlertKind::drill);
  }
  const std::uint32_t stored = status.backedUpFiles.value_or(0);
  const std::string ago = agoText(status.lastGoodBackup, now);
  if (isOld) {
    return trouble(filled(trn("%s waits, and the last good backup was %s.",
                              "%s wait, and the last good backup was %s.", status.pendingFiles),
                          filesWords(status.pendingFiles), ago),
                   Remedy::lookAgain, AlertKind::noBackup);
  }
  if (status.failures > 0) {
    return trouble(
        filled(trn("%s file could not be backed up.", "%s files could not be backed up.", status.failures),
               countText(status.failures)),
        Remedy::showFailures);
  }
  if (std::optional<Headline> found = pauseOf(status, filesWords(status.pendingFiles))) {
    return *found;
  }
  if (status.pendingFiles > 0) {
    return {filled(tr("Backing up: %s of %s are backed up so far."), countText(stored),
                   filesWords(std::uint64_t{stored} + status.pendingFiles)),
            false,
            {},
            Remedy::none,
            {}};
  }
  if (status.looksForMore) {
    return {tr("Looking for what is to be backed up."), false, {}, Remedy::none, {}};
  }
  if (!status.backedUpFiles) {
    return {tr("The daemon does not tell what is backed up."), false, {}, Remedy::none, {}};
  }
  if (stored == 0) {
    return {tr("Nothing is chosen for the backup yet."),
            false,
            {},
            Remedy::chooseFiles,
            buttonFor(Remedy::chooseFiles)};
  }
  const std::string all =
      stored == 1
          ? tr("The only file is backed up")
          : filled(trn("All %s file is backed up", "All %s files are backed up", stored), countText(stored));
  return {(ago.empty() ? all + "." : filled(tr("%s, last %s."), all, ago)) + drillSentence(repository),
          false,
          {},
          Remedy::none,
          {}};
}

}  // namespace keldane
