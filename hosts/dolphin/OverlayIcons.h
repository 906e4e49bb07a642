// The Dolphin extension that puts emblems on files.
#pragma once

#include <KOverlayIconPlugin>
#include <QSet>
#include <QStringList>
#include <QUrl>
#include <deque>
#include <string>

/// Dolphin makes one object for each view. It asks for the visible files, several times over, and is told
/// when an emblem has changed.
class OverlayIcons : public KOverlayIconPlugin {
  Q_OBJECT
  Q_PLUGIN_METADATA(IID "example.keldane.OverlayIcons" FILE "overlay.json")

 public:
  explicit OverlayIcons(QObject* parent = nullptr);
  ~OverlayIcons() override;
  QStringList getOverlays(const QUrl& url) override;

 private:
  void hold(const std::string& folder);
  QSet<QUrl> unanswered_;            // files asked about while emblems were switched off
  std::deque<std::string> folders_;  // folders that the view shows, the latest first
};
