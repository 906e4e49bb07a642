#include "hosts/gtk/BackupPage.h"

#include <map>
#include <memory>

#include "hosts/core/status/FileDetails.h"
#include "hosts/gtk/StatusHost.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr guint kRefresh = 2;  // seconds
constexpr int kSpacing = 6, kBorder = 12, kListHeight = 140;

enum Column : int { kDateColumn, kSizeColumn, kVersionColumn, kColumns };

/// Used on the window's thread only. A page is found by its number, because answers may come after it was
/// deleted.
class BackupPage {
 public:
  explicit BackupPage(std::string path);
  ~BackupPage();
  BackupPage(const BackupPage&) = delete;
  BackupPage& operator=(const BackupPage&) = delete;

  GtkWidget* widget() const { return box_; }
  void refresh();

 private:
  void makeVersionList();
  void makeButtons();
  void addColumn(const char* title, int column);
  GtkWidget* addButton(GtkWidget* row, const char* label, void (BackupPage::*action)());
  void show(const FileDetails& details);
  void showRows();
  void showVersions();
  void enableButtons();
  std::uint32_t chosenVersion() const;
  void tell(const std::string& sentence);
  void backUp();
  void restoreHere() { restoreTo({}); }
  void restoreElsewhere();
  void restoreTo(const std::string& folder);
  void lookAtRestore();
  /// Runs `work` on the service's thread and hands its result to `then` on the window's thread, if this page
  /// still exists.
  template <class Work, class Then>
  void ask(Work work, Then then);

  const std::string path_;
  const unsigned number_;
  GtkWidget* box_;
  GtkWidget* grid_;
  GtkListStore* versions_;
  GtkWidget* list_ = nullptr;
  GtkWidget* message_ = nullptr;
  GtkWidget *backUp_ = nullptr, *restore_ = nullptr, *restoreTo_ = nullptr;
  FileDetails details_;
  bool isAsking_ = false, hasAnswer_ = false;
  std::uint32_t job_ = 0;  // the restore that is under way; 0 for none
  guint timer_ = 0;
};

std::map<unsigned, BackupPage*>& pages() {
  static auto* const all = new std::map<unsigned, BackupPage*>();
  return *all;
}

unsigned nextNumber() {
  static unsigned last = 0;
  return ++last;
}

GtkWidget* makeLabel(const std::string& text) {
  GtkWidget* label = gtk_label_new(text.c_str());
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_selectable(GTK_LABEL(label), TRUE);
  return label;
}

void giveName(GtkWidget* widget, const char* name) {
  atk_object_set_name(gtk_widget_get_accessible(widget), name);
}

BackupPage::BackupPage(std::string path)
    : path_(std::move(path)),
      number_(nextNumber()),
      box_(gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing)),
      grid_(gtk_grid_new()),
      versions_(gtk_list_store_new(kColumns, G_TYPE_STRING, G_TYPE_STRING, G_TYPE_UINT)) {
  pages()[number_] = this;
  gtk_container_set_border_width(GTK_CONTAINER(box_), kBorder);
  gtk_grid_set_row_spacing(GTK_GRID(grid_), kSpacing);
  gtk_grid_set_column_spacing(GTK_GRID(grid_), kBorder);
  gtk_box_pack_start(GTK_BOX(box_), grid_, FALSE, FALSE, 0);
  makeVersionList();
  makeButtons();
  message_ = makeLabel("");
  gtk_box_pack_start(GTK_BOX(box_), message_, FALSE, FALSE, 0);
  details_.rows = {{tr("Status"), tr("Asking the backup daemon…")}};
  showRows();
  enableButtons();
  gtk_widget_show_all(box_);
  tell({});
  refresh();
  timer_ = g_timeout_add_seconds(
      kRefresh,
      [](gpointer data) -> gboolean {
        static_cast<BackupPage*>(data)->refresh();
        return G_SOURCE_CONTINUE;
      },
      this);
  g_signal_connect(box_, "destroy",
                   G_CALLBACK(+[](GtkWidget*, gpointer data) { delete static_cast<BackupPage*>(data); }),
                   this);
}

BackupPage::~BackupPage() {
  g_source_remove(timer_);
  g_signal_handlers_disconnect_by_data(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), this);
  g_object_unref(versions_);
  pages().erase(number_);
}

void BackupPage::makeVersionList() {
  list_ = gtk_tree_view_new_with_model(GTK_TREE_MODEL(versions_));
  giveName(list_, tr("Stored versions"));
  addColumn(tr("Stored version"), kDateColumn);
  addColumn(tr("Size"), kSizeColumn);
  GtkWidget* around = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(around), GTK_SHADOW_IN);
  gtk_scrolled_window_set_min_content_height(GTK_SCROLLED_WINDOW(around), kListHeight);
  giveName(around, tr("Stored versions"));
  gtk_container_add(GTK_CONTAINER(around), list_);
  gtk_box_pack_start(GTK_BOX(box_), around, TRUE, TRUE, 0);
  g_signal_connect_swapped(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), "changed",
                           G_CALLBACK(+[](BackupPage* page) { page->enableButtons(); }), this);
}

void BackupPage::addColumn(const char* title, int column) {
  gtk_tree_view_insert_column_with_attributes(GTK_TREE_VIEW(list_), -1, title, gtk_cell_renderer_text_new(),
                                              "text", column, nullptr);
}

void BackupPage::makeButtons() {
  GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kSpacing);
  backUp_ = addButton(row, tr("_Back Up Now"), &BackupPage::backUp);
  restore_ = addButton(row, tr("_Restore This Version"), &BackupPage::restoreHere);
  restoreTo_ = addButton(row, tr("Restore _To…"), &BackupPage::restoreElsewhere);
  gtk_box_pack_start(GTK_BOX(box_), row, FALSE, FALSE, 0);
}

GtkWidget* BackupPage::addButton(GtkWidget* row, const char* label, void (BackupPage::*action)()) {
  struct Click {
    BackupPage* page;
    void (BackupPage::*action)();
  };
  GtkWidget* button = gtk_button_new_with_mnemonic(label);
  g_signal_connect_data(
      button, "clicked", G_CALLBACK(+[](GtkButton*, gpointer data) {
        const auto* click = static_cast<const Click*>(data);
        (click->page->*click->action)();
      }),
      new Click{this, action}, [](gpointer data, GClosure*) { delete static_cast<Click*>(data); },
      static_cast<GConnectFlags>(0));
  gtk_box_pack_start(GTK_BOX(row), button, FALSE, FALSE, 0);
  return button;
}

template <class Work, class Then>
void BackupPage::ask(Work work, Then then) {
  statusService().perform([number = number_, work, then](DaemonLink* link) {
    auto result = work(link);
    later([number, then, result] {
      const auto page = pages().find(number);
      if (page != pages().end()) {
        then(*page->second, result);
      }
    });
  });
}

// Only one question is asked at a time, so that questions do not pile up for a silent daemon.
void BackupPage::refresh() {
  if (isAsking_ || (hasAnswer_ && gtk_widget_get_mapped(box_) == FALSE)) {
    return;
  }
  isAsking_ = true;
  ask([path = path_](DaemonLink* link) { return askForDetails(link, path, sizeText); },
      [](BackupPage& page, const FileDetails& details) {
        page.isAsking_ = false;
        page.hasAnswer_ = true;
        page.show(details);
      });
  lookAtRestore();
}

void BackupPage::show(const FileDetails& details) {
  const FileDetails before = std::exchange(details_, details);
  if (before.rows != details.rows) {
    showRows();
  }
  if (before.versions != details.versions) {
    showVersions();
  }
  enableButtons();
}

void BackupPage::showRows() {
  gtk_container_foreach(
      GTK_CONTAINER(grid_), [](GtkWidget* child, gpointer) { gtk_widget_destroy(child); }, nullptr);
  int row = 0;
  for (const auto& [name, value] : details_.rows) {
    GtkWidget* title = gtk_label_new((name + ":").c_str());
    gtk_label_set_xalign(GTK_LABEL(title), 1);
    gtk_widget_set_valign(title, GTK_ALIGN_START);
    GtkWidget* text = makeLabel(value);
    gtk_widget_set_hexpand(text, TRUE);
    gtk_grid_attach(GTK_GRID(grid_), title, 0, row, 1, 1);
    gtk_grid_attach(GTK_GRID(grid_), text, 1, row++, 1, 1);
  }
  gtk_widget_show_all(grid_);
}

void BackupPage::showVersions() {
  const std::uint32_t chosen = chosenVersion();
  gtk_list_store_clear(versions_);
  for (const StoredVersion& version : details_.versions) {
    GtkTreeIter place;
    gtk_list_store_insert_with_values(versions_, &place, -1, kDateColumn,
                                      backupDateText(version.date).c_str(), kSizeColumn,
                                      sizeText(version.size).c_str(), kVersionColumn, version.version, -1);
    if (version.version == chosen) {
      gtk_tree_selection_select_iter(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), &place);
    }
  }
}

std::uint32_t BackupPage::chosenVersion() const {
  GtkTreeIter place;
  GtkTreeModel* model = nullptr;
  guint version = 0;
  if (gtk_tree_selection_get_selected(gtk_tree_view_get_selection(GTK_TREE_VIEW(list_)), &model, &place) !=
      FALSE) {
    gtk_tree_model_get(model, &place, kVersionColumn, &version, -1);
  }
  return version;
}

void BackupPage::enableButtons() {
  if (restoreTo_ == nullptr) {
    return;
  }
  const gboolean canRestore = chosenVersion() != 0 && job_ == 0 ? TRUE : FALSE;
  gtk_widget_set_sensitive(backUp_, details_.canBackUp ? TRUE : FALSE);
  gtk_widget_set_sensitive(restore_, canRestore);
  gtk_widget_set_sensitive(restoreTo_, canRestore);
}

void BackupPage::tell(const std::string& sentence) {
  gtk_label_set_text(GTK_LABEL(message_), sentence.c_str());
  // An empty label is hidden, so that the keyboard focus skips it.
  gtk_widget_set_visible(message_, sentence.empty() ? FALSE : TRUE);
}

void BackupPage::backUp() {
  ask([path = path_,
       isFolder = details_.isFolder](DaemonLink* link) { return backUpNow(link, path, isFolder); },
      [](BackupPage& page, const std::string& sentence) {
        page.tell(sentence);
        page.refresh();
      });
  statusService().commandWasGiven({path_});
}

void BackupPage::restoreElsewhere() {
  GtkWidget* window = gtk_widget_get_toplevel(box_);
  GtkFileChooserNative* chooser =
      gtk_file_chooser_native_new(tr("Restore To"), GTK_IS_WINDOW(window) ? GTK_WINDOW(window) : nullptr,
                                  GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER, tr("_Restore"), tr("_Cancel"));
  const unsigned number = number_;  // the properties may be closed meanwhile
  std::string folder;
  if (gtk_native_dialog_run(GTK_NATIVE_DIALOG(chooser)) == GTK_RESPONSE_ACCEPT) {
    const std::unique_ptr<char, decltype(&g_free)> chosen(
        gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(chooser)), g_free);
    folder = chosen ? chosen.get() : "";
  }
  g_object_unref(chooser);
  if (!folder.empty() && pages().contains(number)) {
    restoreTo(folder);
  }
}

void BackupPage::restoreTo(const std::string& folder) {
  const std::uint32_t version = chosenVersion();
  ask([path = path_, version, folder](DaemonLink* link) { return startRestore(link, path, version, folder); },
      [](BackupPage& page, const StartedRestore& started) {
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
  ask([job = job_](DaemonLink* link) { return restoreResult(link, job); },
      [](BackupPage& page, const std::string& result) {
        if (!result.empty()) {
          page.tell(result);
          page.job_ = 0;
          page.enableButtons();
        }
      });
}

}  // namespace

const char* pageTitle() { return tr("Backup"); }

GtkWidget* makeBackupPage(const std::vector<GFile*>& files) {
  const std::optional<std::string> path = files.size() == 1 ? pathOfOwnFile(files.front()) : std::nullopt;
  // The page belongs to its widget, which deletes it.
  return path ? (new BackupPage(*path))->widget() : nullptr;
}

}  // namespace keldane
