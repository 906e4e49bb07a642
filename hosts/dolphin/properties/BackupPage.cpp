#include "hosts/dolphin/properties/BackupPage.h"

#include <KFormat>
#include <QCoreApplication>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <utility>

#include "hosts/core/status/FileStatus.h"
#include "platform/text/Translation.h"

namespace {

using keldane::DaemonLink;

constexpr int kRefresh = 2000;  // milliseconds
constexpr int kVersionRole = Qt::UserRole;

/// The service is never destroyed, because its thread may be stuck when Dolphin ends.
keldane::StatusService& service() {
  static auto* const made = new keldane::StatusService();
  return *made;
}

std::string sizeText(std::uint64_t bytes) {
  return KFormat().formatByteSize(static_cast<double>(bytes)).toStdString();
}

QLabel* makeLabel(const QString& text) {
  auto* label = new QLabel(text);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  return label;
}

/// The texts mark access keys as GTK does, by an underscore. Qt marks them by an ampersand.
QString labelFrom(const char* text) {
  return QString::fromUtf8(text).replace(QLatin1Char('_'), QLatin1Char('&'));
}

}  // namespace

BackupPage::BackupPage(std::string path, QWidget* parent)
    : QWidget(parent),
      path_(std::move(path)),
      rows_(new QFormLayout()),
      versions_(new QTreeWidget()),
      message_(makeLabel({})) {
  auto* column = new QVBoxLayout(this);
  column->addLayout(rows_);
  versions_->setHeaderLabels(
      {QString::fromUtf8(keldane::tr("Stored version")), QString::fromUtf8(keldane::tr("Size"))});
  versions_->setAccessibleName(QString::fromUtf8(keldane::tr("Stored versions")));
  versions_->setRootIsDecorated(false);
  versions_->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
  column->addWidget(versions_);
  makeButtons();
  column->addWidget(message_);
  tell({});
  details_.rows = {{keldane::tr("Status"), keldane::tr("Asking the backup daemon…")}};
  showRows();
  enableButtons();
  connect(versions_, &QTreeWidget::itemSelectionChanged, this, &BackupPage::enableButtons);
  connect(&timer_, &QTimer::timeout, this, &BackupPage::refresh);
  timer_.start(kRefresh);
  refresh();
}

void BackupPage::makeButtons() {
  auto* row = new QHBoxLayout();
  const auto add = [&](const char* label, void (BackupPage::*action)()) {
    auto* button = new QPushButton(labelFrom(label));
    connect(button, &QPushButton::clicked, this, action);
    row->addWidget(button);
    return button;
  };
  backUp_ = add(keldane::tr("_Back Up Now"), &BackupPage::backUp);
  restore_ = new QPushButton(labelFrom(keldane::tr("_Restore This Version")));
  connect(restore_, &QPushButton::clicked, this, [this] { restoreTo({}); });
  row->addWidget(restore_);
  restoreTo_ = new QPushButton(labelFrom(keldane::tr("Restore _To…")));
  connect(restoreTo_, &QPushButton::clicked, this, &BackupPage::restoreElsewhere);
  row->addWidget(restoreTo_);
  row->addStretch();
  static_cast<QVBoxLayout*>(layout())->addLayout(row);
}

// The page is used on the window's thread only, because it may be deleted there meanwhile.
template <class Work, class Then>
void BackupPage::ask(Work work, Then then) {
  service().perform([page = QPointer<BackupPage>(this), work, then](DaemonLink* link) {
    auto result = work(link);
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [page, then, result] {
          if (page) {
            then(*page, result);
          }
        },
        Qt::QueuedConnection);
  });
}

// Only one question is asked at a time, so that questions do not pile up for a silent daemon.
void BackupPage::refresh() {
  if (isAsking_ || (hasAnswer_ && !isVisible())) {
    return;
  }
  isAsking_ = true;
  ask([path = path_](DaemonLink* link) { return keldane::askForDetails(link, path, sizeText); },
      [](BackupPage& page, const keldane::FileDetails& details) {
        page.isAsking_ = false;
        page.hasAnswer_ = true;
        page.show(details);
      });
  lookAtRestore();
}

void BackupPage::show(const keldane::FileDetails& details) {
  const keldane::FileDetails before = std::exchange(details_, details);
  if (before.rows != details.rows) {
    showRows();
  }
  if (before.versions != details.versions) {
    showVersions();
  }
  enableButtons();
}

void BackupPage::showRows() {
  while (rows_->rowCount() > 0) {
    rows_->removeRow(0);
  }
  for (const auto& [name, value] : details_.rows) {
    rows_->addRow(QString::fromStdString(name) + QLatin1Char(':'), makeLabel(QString::fromStdString(value)));
  }
}

void BackupPage::showVersions() {
  const std::uint32_t chosen = chosenVersion();
  versions_->clear();
  for (const keldane::StoredVersion& version : details_.versions) {
    auto* item = new QTreeWidgetItem({QString::fromStdString(keldane::backupDateText(version.date)),
                                      QString::fromStdString(sizeText(version.size))});
    item->setData(0, kVersionRole, version.version);
    versions_->addTopLevelItem(item);
    item->setSelected(version.version == chosen);
  }
}

std::uint32_t BackupPage::chosenVersion() const {
  const QList<QTreeWidgetItem*> chosen = versions_->selectedItems();
  return chosen.isEmpty() ? 0 : chosen.first()->data(0, kVersionRole).toUInt();
}

void BackupPage::enableButtons() {
  const bool canRestore = chosenVersion() != 0 && job_ == 0;
  backUp_->setEnabled(details_.canBackUp);
  restore_->setEnabled(canRestore);
  restoreTo_->setEnabled(canRestore);
}

void BackupPage::tell(const std::string& sentence) {
  message_->setText(QString::fromStdString(sentence));
  // An empty label is hidden, so that the keyboard focus skips it.
  message_->setVisible(!sentence.empty());
}

void BackupPage::backUp() {
  ask([path = path_,
       isFolder = details_.isFolder](DaemonLink* link) { return keldane::backUpNow(link, path, isFolder); },
      [](BackupPage& page, const std::string& sentence) {
        page.tell(sentence);
        page.refresh();
      });
}

void BackupPage::restoreElsewhere() {
  const QPointer<BackupPage> page(this);  // the properties may be closed meanwhile
  const QString folder =
      QFileDialog::getExistingDirectory(this, QString::fromUtf8(keldane::tr("Restore To")));
  if (page && !folder.isEmpty()) {
    restoreTo(folder);
  }
}

void BackupPage::restoreTo(const QString& folder) {
  const std::uint32_t version = chosenVersion();
  ask([path = path_, version, place = folder.toStdString()](
          DaemonLink* link) { return keldane::startRestore(link, path, version, place); },
      [](BackupPage& page, const keldane::StartedRestore& started) {
        page.tell(started.sentence);
        page.job_ = started.job;
        page.enableButtons();
        page.lookAtRestore();
      });
}

void BackupPage::lookAtRestore() {
  if (job_ == 0) {
    return;
  }
  ask([job = job_](DaemonLink* link) { return keldane::restoreResult(link, job); },
      [](BackupPage& page, const std::string& result) {
        if (!result.empty()) {
          page.tell(result);
          page.job_ = 0;
          page.enableButtons();
        }
      });
}
