// InspectorPanel: the details of the screenshot the library window has
// current: its title (editable; an empty title shows the automatic one),
// the effective category with the user's override, its user category, tags
// and note, the recognised text (selectable, copyable), when it was taken,
// the application it shows, its size, its processing state with the failure
// text and a retry button, and why it was filed where it is.
//
// Edits are saved on the item when the field is left (title, note) or the
// choice made (category); retry goes to the daemon. itemChanged() tells the
// window to redraw the item.
//
// Thread rules: interface thread.
#pragma once

#include <QWidget>
#include <memory>
#include <optional>

#include "app/library_session.h"
#include "library/screenshot_item.h"

class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace klipora::desktop {

class LibraryActions;

class InspectorPanel : public QWidget {
  Q_OBJECT

 public:
  InspectorPanel(app::LibrarySession& session, LibraryActions& actions,
                 QWidget* parent = nullptr);

  // Shows the item with `id` (nullopt: nothing selected). Reads it again
  // from the store.
  void showItem(std::optional<UUID> id);
  std::optional<UUID> shownItem() const;

  // For tests and screenshots.
  QLineEdit* titleField() const { return title_; }
  QComboBox* categoryChoice() const { return category_; }
  QPlainTextEdit* noteField() const { return note_; }
  QPlainTextEdit* recognisedText() const { return text_; }
  QLabel* stateLabel() const { return state_; }
  QPushButton* retryButton() const { return retry_; }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 signals:
  void itemChanged(const QString& id);
  void failed(const QString& message);

 private:
  void fill(const library::ScreenshotItem& item);
  void saveTitle();
  void saveNote();
  void chooseCategory(int index);
  void retry();
  void report(const Status& s);

  app::LibrarySession& session_;
  LibraryActions& actions_;
  std::shared_ptr<library::ScreenshotItem> item_;
  QWidget* details_ = nullptr;
  QLabel* empty_ = nullptr;
  QLineEdit* title_ = nullptr;
  QComboBox* category_ = nullptr;
  QLabel* customCategory_ = nullptr;
  QLabel* tags_ = nullptr;
  QPlainTextEdit* note_ = nullptr;
  QPlainTextEdit* text_ = nullptr;
  QLabel* captured_ = nullptr;
  QLabel* source_ = nullptr;
  QLabel* size_ = nullptr;
  QLabel* state_ = nullptr;
  QPushButton* retry_ = nullptr;
  QLabel* explanation_ = nullptr;
};

}  // namespace klipora::desktop
