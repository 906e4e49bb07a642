// The Dolphin extension that puts emblems on files.
#pragma once

#include <KOverlayIconPlugin>
#include <QSet>
#include <QStringList>
#include <QUrl>
#include <deque>
#include <string>

/// One for each view. Dolphin asks for what can be seen, some times over, and is told when something changed.
class OverlayIcons : public KOverlayIconPlugin {
  Q_OBJECT
  Q_PLUGIN_METADATA(IID "example.keldane.OverlayIcons" FILE "overlay.json")

 public:
  explicit OverlayIcons(QObject* parent = nullptr);
  ~OverlayIcons() override;
  QStringList getOverlays(const QUrl& url) override;

 private:
  void hold(const std::string& folder);
  QSet<QUrl> unanswered_;            // asked about while emblems were switched off
  std::deque<std::string> folders_;  // that the view shows, the latest first
};
